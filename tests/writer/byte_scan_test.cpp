#include "writer/byte_scan.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace tamrix {
namespace {

// All lengths up to 300, and those around the blocks in which the scans work; each at different distances
// from an aligned address, among other bytes. The memory ends behind them, so that a look further on is seen.
TEST(ByteScan, zeroTestAndSumSeeEveryByteOnceAndNoOther) {
  std::mt19937 random(1);
  for (std::size_t size = 0; size < 2100; size += size < 300 || size % 256 < 2 || size % 256 == 255 ? 1 : 5) {
    for (const std::size_t misaligned : {0U, 1U, 7U}) {
      std::vector<char> memory(misaligned + size + 3, '\xFF');
      char* const bytes = memory.data() + misaligned;
      std::fill_n(bytes, size, '\0');
      EXPECT_TRUE(allZero(bytes, size)) << size;
      std::uint64_t sum = 0;
      for (std::size_t at = 0; at < size; ++at) {
        bytes[at] = '\x80';
        ASSERT_FALSE(allZero(bytes, size)) << at << " of " << size << '+' << misaligned;
        bytes[at] = 0;
      }
      for (std::size_t at = 0; at < size; ++at) {
        bytes[at] = static_cast<char>(random());
        sum += static_cast<unsigned char>(bytes[at]);
      }
      ASSERT_EQ(byteSum(bytes, size), sum) << size << '+' << misaligned;
    }
  }
  // Lanes of too few bits overflow here.
  const std::string large((std::size_t{32} << 20) + 5, '\xFF');
  EXPECT_EQ(byteSum(large.data(), large.size()), 255 * std::uint64_t{large.size()});
}

}  // namespace
}  // namespace tamrix
