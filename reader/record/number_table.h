// A hash table of numbers whose keys are kept elsewhere.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace tamrix {

// Purpose: finds a number by its key's hash in one or two cache lines, because a listing asks millions of
// times and nearly always finds nothing. Numbers are below 2^32 - 1 and are never taken out.
// Threads: one. Lifetime: any.
class NumberTable {
 public:
  using Number = std::uint32_t;
  static constexpr Number kNone = ~Number{0};

  // The number added under `hash` for which `isWanted(number)` holds; kNone when there is none.
  template <class IsWanted>
  Number find(std::size_t hash, IsWanted isWanted) const {
    if (cells_.empty()) return kNone;
    for (std::size_t at = home(tagOf(hash)); cells_[at].number != kNone; at = next(at)) {
      if (cells_[at].tag == tagOf(hash) && isWanted(cells_[at].number)) return cells_[at].number;
    }
    return kNone;
  }

  // Begins to fetch from memory what find and add will look at.
  void prefetch(std::size_t hash) const {
    if (!cells_.empty()) __builtin_prefetch(&cells_[home(tagOf(hash))]);
  }

  // Makes room for `count` numbers in all, so that adding them allocates nothing.
  void reserve(std::size_t count) {
    while (count * 4 > cells_.size() * 3) grow();
  }

  void add(std::size_t hash, Number number) {
    if (++count_ * 4 > cells_.size() * 3) grow();
    put({tagOf(hash), number});
  }

 private:
  struct Cell {
    std::uint32_t tag = 0;  // 32 bits of the hash: where the cell's place is, and a first comparison
    Number number = kNone;  // kNone: the cell is free
  };

  // Mixes the hash's bits, so that hashes that differ in any bit may differ in the tag's low bits.
  static std::uint32_t tagOf(std::size_t hash) {
    return static_cast<std::uint32_t>(((hash ^ (hash >> 32)) * 0x9E3779B97F4A7C15U) >> 32);
  }
  std::size_t home(std::uint32_t tag) const { return tag & (cells_.size() - 1); }
  std::size_t next(std::size_t at) const { return (at + 1) & (cells_.size() - 1); }

  void put(Cell cell) {
    std::size_t at = home(cell.tag);
    while (cells_[at].number != kNone) at = next(at);
    cells_[at] = cell;
  }

  void grow() {
    const std::size_t size = std::max<std::size_t>(kFirstSize, cells_.size() * 2);
    const std::vector<Cell> before = std::exchange(cells_, std::vector<Cell>(size));
    for (const Cell& cell : before) {
      if (cell.number != kNone) put(cell);
    }
  }

  static constexpr std::size_t kFirstSize = 16;

  std::vector<Cell> cells_;  // as many as a power of two; at most three in four are taken
  std::size_t count_ = 0;
};

}  // namespace tamrix
