#include "writer/byte_scan.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace tamrix {
namespace {

// All lengths up to 300, and those around the blocks in which the scans work.
std::vector<std::size_t> lengths() {
  std::vector<std::size_t> all;
  for (std::size_t n = 0; n <= 300; ++n) all.push_back(n);
  for (const std::size_t n : {511U, 512U, 513U, 767U, 1023U, 1024U, 1025U, 1600U}) all.push_back(n);
  return all;
}

// `size` bytes at `misaligned` bytes behind an aligned address, with other bytes on both sides; the memory
// ends where these end, so that a look further on is seen.
class Bytes {
 public:
  Bytes(std::size_t size, std::size_t misaligned, char around)
      : all_(std::make_unique<char[]>(misaligned + size + kAround)), data_(all_.get() + misaligned) {
    std::fill_n(all_.get(), misaligned, around);
    std::fill_n(data_ + size, kAround, around);
  }
  char* data() { return data_; }

 private:
  static constexpr std::size_t kAround = 3;
  const std::unique_ptr<char[]> all_;
  char* const data_;
};

class ByteScanTest : public testing::TestWithParam<ScanKernels> {};

TEST_P(ByteScanTest, zeroTestSeesEveryByteAndNoOther) {
  for (const std::size_t size : lengths()) {
    for (const std::size_t misaligned : {0U, 1U, 7U}) {
      Bytes bytes(size, misaligned, 1);
      ASSERT_TRUE(GetParam().allZero(bytes.data(), size)) << size << '+' << misaligned;
      for (std::size_t at = 0; at < size; ++at) {
        bytes.data()[at] = static_cast<char>(0x80);
        ASSERT_FALSE(GetParam().allZero(bytes.data(), size)) << size << '+' << misaligned << " at " << at;
        bytes.data()[at] = 0;
      }
    }
  }
}

TEST_P(ByteScanTest, sumCountsEveryByteOnceAsUnsigned) {
  std::mt19937 random(1);
  for (const std::size_t size : lengths()) {
    for (const std::size_t misaligned : {0U, 1U, 7U}) {
      Bytes bytes(size, misaligned, static_cast<char>(0xFF));
      std::uint64_t expected = 0;
      for (std::size_t i = 0; i < size; ++i) {
        bytes.data()[i] = static_cast<char>(random());
        expected += static_cast<unsigned char>(bytes.data()[i]);
      }
      ASSERT_EQ(GetParam().byteSum(bytes.data(), size), expected) << size << '+' << misaligned;
    }
  }
}

// Lanes of too few bits overflow here.
TEST_P(ByteScanTest, sumOfManyLargeBytesIsExact) {
  const std::size_t size = (std::size_t{32} << 20) + 5;
  const std::string bytes(size, static_cast<char>(0xFF));
  EXPECT_EQ(GetParam().byteSum(bytes.data(), size), 255 * std::uint64_t{size});
}

INSTANTIATE_TEST_SUITE_P(Kernels, ByteScanTest, testing::ValuesIn(scanKernels().begin(), scanKernels().end()),
                         [](const testing::TestParamInfo<ScanKernels>& kernels) {
                           std::string name = kernels.param.instructions;
                           std::erase(name, '-');
                           return name;
                         });

}  // namespace
}  // namespace tamrix
