// The checksums that the checksum stage can compute.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace tamrix {

// Purpose: the running checksum of one file after another. Threads: one. Lifetime: the stage's.
class ChecksumAlgorithm {
 public:
  ChecksumAlgorithm() = default;
  virtual ~ChecksumAlgorithm() = default;
  ChecksumAlgorithm(const ChecksumAlgorithm&) = delete;
  ChecksumAlgorithm& operator=(const ChecksumAlgorithm&) = delete;

  // Begins with a new file.
  virtual void reset() = 0;
  virtual void add(const char* data, std::size_t size) = 0;
  // As adding `size` bytes of zero.
  virtual void addZeros(std::size_t size) = 0;
  // The checksum of what was added since reset, as it is stored.
  virtual std::string text() const = 0;
};

// Makes the algorithm of that name (case-sensitive); null when there is none.
//
//   modsum64  the sum of all bytes modulo 2^64, in decimal. Does not see bytes that changed places.
//   xxh128    XXH3, 128 bits, in lower-case hexadecimal, most significant digit first.
std::unique_ptr<ChecksumAlgorithm> makeChecksumAlgorithm(std::string_view name);

// The extended attribute in which checksums of the algorithm `name` are stored.
std::string checksumAttribute(std::string_view name);

}  // namespace tamrix
