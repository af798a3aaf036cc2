#include "bench/compare_table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <utility>

#include "bench/child_run.h"

namespace tamrix::bench {

namespace {

// Memory: the default pool, the program itself, and 1 KiB a file.
constexpr double kPool = 400.0 * (1 << 20) + 16.0 * (1 << 20);
constexpr double kRecord = 1024;

double best(const std::vector<double>& figures) { return *std::min_element(figures.begin(), figures.end()); }

// A median and where that of other rounds would be, with a probability of 95 % as far as rounds don't depend
// on each other: the figures at the ranks n/2 +- 0.98 sqrt(n), cut to what there is.
struct Spread {
  double median, from, to;
};
Spread spreadOf(std::vector<double> figures) {
  std::sort(figures.begin(), figures.end());
  const double n = static_cast<double>(figures.size());
  const double half = 0.98 * std::sqrt(n);
  const auto from = static_cast<std::size_t>(std::max(0.0, std::floor(n / 2 - half)));
  const auto to = static_cast<std::size_t>(std::min(n - 1, std::ceil(n / 2 + half) - 1));
  return {figures[figures.size() / 2], figures[from], figures[to]};
}

// Round by round: what disturbs one side of a round often disturbs the other.
Spread ratios(const std::vector<double>& a, const std::vector<double>& b) {
  std::vector<double> all;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) all.push_back(a[i] / b[i]);
  return spreadOf(std::move(all));
}

double targetOver(const std::string& peer, const Measured& measured) {
  const Work& work = measured.work;
  if (measured.place == Place::kVolume) return peer == "tar+mbuffer" ? 0 : work.overAllFromVolume;
  if (work.targetsWithAttributesOnly && !measured.attributes) return 0;
  if (peer == "cp") return measured.place == Place::kMemory ? work.overCpInMemory : work.overCp;
  return peer == "rsync" ? work.overRsync : work.overOthers;
}

// Says which targets were reached.
void judge(const Measured& measured) {
  const Work& work = measured.work;
  const Column& own = measured.columns.front();
  for (const Column& column : measured.columns) {
    const std::string& name = column.peer.name;
    if (name == own.peer.name) continue;
    const double target = targetOver(name, measured);
    const double reached = ratios(column.wall, own.wall).median;
    if (target > 0) tell(("speed over " + name + "'s").c_str(), reached, Target::kAtLeast, target);
    if (name != "cp") continue;
    const double most = measured.place == Place::kMemory ? work.cpuOverCpInMemory : work.cpuOverCp;
    if (most > 0 && (measured.attributes || !work.targetsWithAttributesOnly)) {
      const double cpu = ratios(own.cpu, column.cpu).median;
      tell("processor time over cp's", cpu, Target::kAtMost, most);
    }
    if (work.sparse && own.blocks > column.blocks) std::printf("  more blocks used than cp: MISSED\n");
  }
  if (measured.place == Place::kMemory && work.ofLimitInMemory > 0) {
    const double reached = ratios(measured.limits, own.wall).median;
    tell("of the limit", reached, Target::kAtLeast, work.ofLimitInMemory);
  }
  const double pool = work.mostPeakMiB > 0 ? work.mostPeakMiB * (1 << 20)
                                           : kPool + kRecord * static_cast<double>(work.sizes.size());
  const double peak = *std::max_element(own.peak.begin(), own.peak.end());
  // From a volume, which is a slow source, the whole ring is used.
  if (measured.place != Place::kVolume)
    tell("MiB of memory in every round", peak / (1 << 20), Target::kAtMost, pool / (1 << 20));
}

}  // namespace

const char* nameOf(Place place) {
  return place == Place::kMemory ? "in memory" : place == Place::kDisk ? "on disk" : "from a mounted volume";
}

void print(const Measured& measured) {
  const Work& work = measured.work;
  const std::vector<double>& own = measured.columns.front().wall;
  std::printf("\n%s, %s, %s, %zu rounds\n", work.name.c_str(), nameOf(measured.place),
              measured.attributes ? "with attributes" : "without attributes", own.size());
  std::printf("  %-12s %9s %9s %-13s %9s %9s %9s %9s %10s%s\n", "", "seconds", "x tamrix", " (95 %)", "cpu s",
              "x tamrix", "cpu s/GiB", "best s", "peak MiB", work.sparse ? "    blocks" : "");
  const double gibibytes =
      static_cast<double>(std::accumulate(work.sizes.begin(), work.sizes.end(), std::int64_t{0})) / (1 << 30);
  for (const Column& column : measured.columns) {
    const Spread over = ratios(column.wall, own);
    const double cpu = median(column.cpu);
    std::printf("  %-12s %9.3f %9.2f (%.2f to %.2f) %9.3f %9.2f %9.3f %9.3f %10.1f", column.peer.name.c_str(),
                median(column.wall), over.median, over.from, over.to, cpu,
                ratios(column.cpu, measured.columns.front().cpu).median, cpu / gibibytes, best(column.wall),
                *std::max_element(column.peak.begin(), column.peak.end()) / (1 << 20));
    if (work.sparse) std::printf(" %9lld", static_cast<long long>(column.blocks));
    std::printf("\n");
  }
  for (const auto& [name, figures] :
       {std::pair("writer alone", &measured.writers), {"limit", &measured.limits}}) {
    const Spread over = ratios(*figures, own);
    std::printf("  %-12s %9.3f %9.2f (%.2f to %.2f) %9s %9s %9s %9.3f\n", name, median(*figures), over.median,
                over.from, over.to, "", "", "", best(*figures));
  }
  judge(measured);
  std::fflush(stdout);
}

}  // namespace tamrix::bench
