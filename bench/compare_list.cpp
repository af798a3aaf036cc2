// The kinds of work that bench/compare copies, and what tamrix is to reach with each.
#include <algorithm>
#include <cmath>
#include <random>

#include "bench/compare_work.h"

namespace tamrix::bench {

std::vector<Work> allWork(std::int64_t scale) {
  const auto files = [scale](std::int64_t count) {
    return static_cast<std::size_t>(std::max<std::int64_t>(count / scale, 1));
  };
  std::vector<Work> all = {
      {.name = "one 2 GiB file",
       .sizes = {(std::int64_t{2} << 30) / scale},
       .overCp = 1,
       .overCpInMemory = 1.2,
       .ofLimitInMemory = 0.85,
       .cpuOverCpInMemory = 1.25,
       .mostPeakMiB = 32},
      {.name = "64 files of 32 MiB",
       .sizes = std::vector<std::int64_t>(files(64), 32 << 20),
       .overCp = 1,
       .overCpInMemory = 1,
       .overAllFromVolume = 1,
       .ofLimitInMemory = 0.85,
       .cpuOverCpInMemory = 1.25,
       .mostPeakMiB = 32},
      {.name = "20,000 files of 4 KiB",
       .sizes = std::vector<std::int64_t>(files(20000), 4096),
       .overCp = 1.3,
       .overCpInMemory = 1.3,
       .overRsync = 2.5,
       .overAllFromVolume = 4,
       .cpuOverCp = 1,
       .cpuOverCpInMemory = 1,
       .targetsWithAttributesOnly = true},
      {.name = "20,000 files of 4 KiB, scattered",
       .sizes = std::vector<std::int64_t>(files(20000), 4096),
       .targetsWithAttributesOnly = true,
       .scattered = true},
      {.name = "log-uniform mix",
       .sizes = {},
       .overCp = 1,
       .overCpInMemory = 1,
       .overRsync = 1,
       .overOthers = 1,
       .mostPeakMiB = 32},
      {.name = "sparse 4 GiB file",
       .sizes = {(std::int64_t{4} << 30) / scale},
       .sparse = true,
       .overCp = 1,
       .overCpInMemory = 1},
  };
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> exponent(0, 24);  // 1 byte to 16 MiB
  for (std::size_t i = 0; i < files(1500); ++i) {
    all[4].sizes.push_back(static_cast<std::int64_t>(std::exp2(exponent(random))));
  }
  return all;
}

}  // namespace tamrix::bench
