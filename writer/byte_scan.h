// Passes over all bytes of a buffer, on every machine faster than the stages need.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tamrix {

// Whether all `size` bytes are zero. Stops early at data: ordinary buffers cost a few loads. True for none.
bool allZero(const char* data, std::size_t size);

// The sum of the bytes, each taken as 0 to 255, modulo 2^64.
std::uint64_t byteSum(const char* data, std::size_t size);

}  // namespace tamrix
