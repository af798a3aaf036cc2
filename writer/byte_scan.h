// Looking at every byte of a buffer, at the speed of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tamrix {

// Whether all `size` bytes are zero. Stops early at data: ordinary buffers cost a few loads. True for none.
bool allZero(const char* data, std::size_t size);

// The sum of the bytes, each taken as 0 to 255, modulo 2^64.
std::uint64_t byteSum(const char* data, std::size_t size);

// The two functions made for one set of vector instructions.
struct ScanKernels {
  const char* instructions;
  bool (*allZero)(const char* data, std::size_t size);
  std::uint64_t (*byteSum)(const char* data, std::size_t size);
};

// Those that this machine can run, the fastest last; allZero and byteSum are that one's. Never empty.
std::span<const ScanKernels> scanKernels();

}  // namespace tamrix
