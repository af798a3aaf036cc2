// Plain loops over 64-bit words, without a branch inside a block of them: the compiler turns them into the
// vector instructions that every machine of the architecture has.
#include "writer/byte_scan.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numeric>

namespace tamrix {

namespace {

constexpr std::size_t kWord = sizeof(std::uint64_t);

std::uint64_t wordAt(const char* data) {
  std::uint64_t word = 0;
  std::memcpy(&word, data, kWord);
  return word;
}

// The sum of `words` words' bytes, at most 128 for each of four lanes of 16 bits: 128 * 2 * 255 still fits.
std::uint64_t sumOfBlock(const char* data, std::size_t words) {
  constexpr std::uint64_t kEvenBytes = 0x00FF00FF00FF00FF;
  std::uint64_t lanes = 0;
  for (std::size_t i = 0; i < words; ++i) {
    const std::uint64_t word = wordAt(data + i * kWord);
    lanes += (word & kEvenBytes) + ((word >> 8) & kEvenBytes);
  }
  constexpr std::uint64_t kEvenLanes = 0x0000FFFF0000FFFF;
  const std::uint64_t pairs = (lanes & kEvenLanes) + ((lanes >> 16) & kEvenLanes);
  return (pairs & 0xFFFFFFFF) + (pairs >> 32);
}

}  // namespace

bool allZero(const char* data, std::size_t size) {
  constexpr std::size_t kWords = 32;
  for (; size >= kWords * kWord; data += kWords * kWord, size -= kWords * kWord) {
    std::uint64_t seen = 0;
    for (std::size_t i = 0; i < kWords; ++i) seen |= wordAt(data + i * kWord);
    if (seen != 0) return false;
  }
  return std::all_of(data, data + size, [](char c) { return c == 0; });
}

std::uint64_t byteSum(const char* data, std::size_t size) {
  constexpr std::size_t kWords = 128;
  std::uint64_t sum = 0;
  for (; size >= kWords * kWord; data += kWords * kWord, size -= kWords * kWord)
    sum += sumOfBlock(data, kWords);
  return std::accumulate(data, data + size, sum,
                         [](std::uint64_t total, char c) { return total + static_cast<unsigned char>(c); });
}

}  // namespace tamrix
