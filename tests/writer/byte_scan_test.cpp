#include "writer/byte_scan.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace tamrix {
namespace {

// All lengths up to 300, and those around the blocks in which the scans work; each at different distances
// from an aligned address, with `around` on both sides. The memory ends there, so that a look further on is
// seen.
template <class Check>
void forAllPlaces(char around, Check check) {
  std::vector<std::size_t> lengths = {511, 512, 513, 767, 1023, 1024, 1025, 1600};
  for (std::size_t n = 0; n <= 300; ++n) lengths.push_back(n);
  for (const std::size_t size : lengths) {
    for (const std::size_t misaligned : {0U, 1U, 7U}) {
      SCOPED_TRACE(std::to_string(size) + "+" + std::to_string(misaligned));
      const std::size_t all = misaligned + size + 3;
      const auto bytes = std::make_unique<char[]>(all);
      std::fill_n(bytes.get(), all, around);
      std::fill_n(bytes.get() + misaligned, size, '\0');
      check(bytes.get() + misaligned, size);
    }
  }
}

class ByteScanTest : public testing::TestWithParam<ScanKernels> {};

TEST_P(ByteScanTest, zeroTestSeesEveryByteAndNoOther) {
  forAllPlaces(1, [](char* bytes, std::size_t size) {
    ASSERT_TRUE(GetParam().allZero(bytes, size));
    for (std::size_t at = 0; at < size; ++at) {
      bytes[at] = static_cast<char>(0x80);
      ASSERT_FALSE(GetParam().allZero(bytes, size)) << at;
      bytes[at] = 0;
    }
  });
}

TEST_P(ByteScanTest, sumCountsEveryByteOnceAsUnsigned) {
  std::mt19937 random(1);
  forAllPlaces(static_cast<char>(0xFF), [&](char* bytes, std::size_t size) {
    std::uint64_t expected = 0;
    for (std::size_t i = 0; i < size; ++i) {
      bytes[i] = static_cast<char>(random());
      expected += static_cast<unsigned char>(bytes[i]);
    }
    ASSERT_EQ(GetParam().byteSum(bytes, size), expected);
  });
  // Lanes of too few bits overflow here.
  const std::string large((std::size_t{32} << 20) + 5, static_cast<char>(0xFF));
  EXPECT_EQ(GetParam().byteSum(large.data(), large.size()), 255 * std::uint64_t{large.size()});
}

INSTANTIATE_TEST_SUITE_P(Kernels, ByteScanTest,
                         testing::ValuesIn(scanKernels().begin(), scanKernels().end()));

}  // namespace
}  // namespace tamrix
