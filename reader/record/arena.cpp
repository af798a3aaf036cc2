#include "reader/record/arena.h"

#include <forward_list>
#include <memory>

namespace tamrix {

namespace {

// Small enough to take the place of what the listing gives back meanwhile; a larger one would be mapped anew.
constexpr std::size_t kBlockSize = 64 * 1024 - 64;
// A larger piece gets a block of its own, so that little of a block is left unused.
constexpr std::size_t kLargestPiece = kBlockSize / 16;

struct Arena {
  std::forward_list<std::unique_ptr<char[]>> blocks;
  char* next = nullptr;  // in the block that small pieces are taken from
  std::size_t left = 0;  // bytes there

  char* newBlock(std::size_t size) {
    return blocks.emplace_front(std::make_unique_for_overwrite<char[]>(size)).get();
  }
};

}  // namespace

char* takeFromArena(std::size_t size) {
  static auto* const arena = new Arena;
  if (size > kLargestPiece) return arena->newBlock(size);
  if (size > arena->left) {
    arena->next = arena->newBlock(kBlockSize);
    arena->left = kBlockSize;
  }
  char* const piece = arena->next;
  arena->next += size;
  arena->left -= size;
  return piece;
}

const char* copyToArena(std::string_view text) {
  char* const copy = takeFromArena(text.size() + 1);
  text.copy(copy, text.size());
  copy[text.size()] = '\0';
  return copy;
}

}  // namespace tamrix
