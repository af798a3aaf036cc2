#include "writer/byte_scan.h"

#include <algorithm>
#include <cstring>

namespace tamrix {

bool allZero(const char* data, std::size_t size) {
  // Blocks without a branch inside, so that the compiler works on whole vectors.
  constexpr std::size_t kWords = 32;
  constexpr std::size_t kBlock = kWords * sizeof(std::uint64_t);
  for (; size >= kBlock; data += kBlock, size -= kBlock) {
    std::uint64_t seen = 0;
    for (std::size_t i = 0; i < kWords; ++i) {
      std::uint64_t word = 0;
      std::memcpy(&word, data + i * sizeof(word), sizeof(word));
      seen |= word;
    }
    if (seen != 0) return false;
  }
  return std::all_of(data, data + size, [](char c) { return c == 0; });
}

std::uint64_t byteSum(const char* data, std::size_t size) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < size; ++i) sum += static_cast<unsigned char>(data[i]);
  return sum;
}

}  // namespace tamrix
