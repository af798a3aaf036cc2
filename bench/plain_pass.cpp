#include "bench/plain_pass.h"

namespace tamrix::bench {

std::uint64_t orOfWords(const char* data, std::size_t size) {
  const auto* const words = reinterpret_cast<const std::uint64_t*>(data);
  std::uint64_t all = 0;
  for (std::size_t i = 0; i < size / sizeof(*words); ++i) all |= words[i];
  return all;
}

std::uint64_t sumOfWords(const char* data, std::size_t size) {
  const auto* const words = reinterpret_cast<const std::uint64_t*>(data);
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < size / sizeof(*words); ++i) sum += words[i];
  return sum;
}

}  // namespace tamrix::bench
