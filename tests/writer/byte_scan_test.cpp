#include "writer/byte_scan.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>

namespace tamrix {
namespace {

// All lengths up to 300, and those around the blocks in which the scans work; each at different distances
// from an aligned address, with `around` on both sides. The memory ends there, so that a look further on is
// seen.
template <class Check>
void forAllPlaces(char around, Check check) {
  for (std::size_t size = 0; size < 2100; size += size < 300 || size % 256 < 2 || size % 256 == 255 ? 1 : 5) {
    for (const std::size_t misaligned : {0U, 1U, 7U}) {
      const std::size_t all = misaligned + size + 3;
      const auto bytes = std::make_unique<char[]>(all);
      std::fill_n(bytes.get(), all, around);
      std::fill_n(bytes.get() + misaligned, size, '\0');
      check(bytes.get() + misaligned, size);
      ASSERT_FALSE(testing::Test::HasFailure()) << size << '+' << misaligned;
    }
  }
}

TEST(ByteScan, zeroTestSeesEveryByteAndNoOther) {
  forAllPlaces(1, [](char* bytes, std::size_t size) {
    EXPECT_TRUE(allZero(bytes, size));
    for (std::size_t at = 0; at < size; ++at) {
      bytes[at] = static_cast<char>(0x80);
      EXPECT_FALSE(allZero(bytes, size)) << at;
      bytes[at] = 0;
    }
  });
}

TEST(ByteScan, sumCountsEveryByteOnceAsUnsigned) {
  std::mt19937 random(1);
  forAllPlaces(static_cast<char>(0xFF), [&](char* bytes, std::size_t size) {
    std::uint64_t expected = 0;
    for (std::size_t i = 0; i < size; ++i) {
      bytes[i] = static_cast<char>(random());
      expected += static_cast<unsigned char>(bytes[i]);
    }
    EXPECT_EQ(byteSum(bytes, size), expected);
  });
  // Lanes of too few bits overflow here.
  const std::string large((std::size_t{32} << 20) + 5, static_cast<char>(0xFF));
  EXPECT_EQ(byteSum(large.data(), large.size()), 255 * std::uint64_t{large.size()});
}

}  // namespace
}  // namespace tamrix
