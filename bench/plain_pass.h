// What scanning memory is held against: reading it word by word, vectorised by the compiler.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tamrix::bench {

// `data` is aligned, `size` in bytes, a multiple of 8.
std::uint64_t orOfWords(const char* data, std::size_t size);
std::uint64_t sumOfWords(const char* data, std::size_t size);

}  // namespace tamrix::bench
