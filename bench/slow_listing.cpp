// How many threads should ask about the files of a listing, on a fast file system and where each call waits.
//
//     slow_listing_bench DIRECTORY [ROUNDS]
//
// Makes files with the attributes of a tape position in DIRECTORY and asks about them with 1, 2, 4, 8 and 16
// threads at most. Prints medians, and the speed over that of one thread. What asking takes where calls wait
// should fall as threads are added, and on a fast file system processor time should stay what two threads
// take.
//
// Ends with 0 when the targets are met, 1 when one is missed, 2 when something went wrong, 3 when DIRECTORY
// takes no user attributes. DIRECTORY is left to the caller to remove.

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/child_run.h"
#include "bench/slow_calls.h"
#include "bench/tape_tree.h"
#include "config/run_options.h"
#include "log/logger.h"
#include "pipeline/stage/globals.h"
#include "reader/list/pair_probes.h"
#include "reader/list/spec_file_lister.h"

namespace {

using namespace tamrix;  // NOLINT: a program, not a header

constexpr std::array<std::size_t, 5> kThreads = {1, 2, 4, 8, 16};
constexpr std::chrono::microseconds kDelay(200);
constexpr double kTargetSpeedup = 4;  // of the most threads over one, where calls wait
constexpr double kTargetProcessor =
    1.05;  // of the most threads over two, where they don't; 5 % for the noise
constexpr int kNoAttributes = 3;

struct Cost {
  double wall = 0;  // seconds, like the next
  double cpu = 0;
};

double cpuSeconds() {
  struct rusage usage {};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Asks about all files of a tree as a listing does, with `threads` at most.
Cost ask(const std::string& tree, std::size_t threads, int files) {
  PipelineGlobals globals;
  RunOptions options;
  options.srcpath = tree;
  options.srcspec = std::string(FileLister::kAnyName);
  options.dstpath = tree + "-restored";
  options.recursive = true;
  SpecFileLister lister(globals, options);
  if (lister.init() != 0) throw std::runtime_error("can't list " + tree);
  const auto begun = std::chrono::steady_clock::now();
  const double cpuBefore = cpuSeconds();
  {
    PairProbes probes(lister, globals.stopExecution, PairProbes::When::kAhead, PairProbes::Ends::kBoth,
                      threads - 1);
    int found = 0;
    for (; lister.getNextFile() == 0; ++found) {
      const PairProbe* const pair = probes.at(static_cast<std::size_t>(found));
      if (pair == nullptr || !pair->sourceId.exists(pair->source)) throw std::runtime_error("a file is gone");
    }
    if (found != files) throw std::runtime_error("not all files were found");
  }
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - begun;
  return {wall.count(), cpuSeconds() - cpuBefore};
}

struct Medians {
  std::array<Cost, kThreads.size()> byThreads;
};

Medians measure(const std::string& tree, int files, std::chrono::microseconds delay, int rounds) {
  bench::makeTapeTree(tree, files, bench::TapeAttributes::kPosition);
  bench::setCallDelay(delay);
  std::array<std::vector<double>, kThreads.size()> walls;
  std::array<std::vector<double>, kThreads.size()> cpus;
  // Round by round, so that what else the machine does falls on all.
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < kThreads.size(); ++i) {
      const Cost cost = ask(tree, kThreads.at(i), files);
      walls.at(i).push_back(cost.wall);
      cpus.at(i).push_back(cost.cpu);
    }
  }
  bench::setCallDelay({});
  Medians medians;
  std::printf("%d files, each call %ld us later, median of %d rounds\n\n", files,
              static_cast<long>(delay.count()), rounds);
  std::printf("%8s %9s %9s %10s %9s\n", "threads", "wall s", "cpu s", "files/s", "speed");
  for (std::size_t i = 0; i < kThreads.size(); ++i) {
    Cost& cost = medians.byThreads.at(i);
    cost = {bench::median(walls.at(i)), bench::median(cpus.at(i))};
    std::printf("%8zu %9.3f %9.3f %10.0f %9.2f\n", kThreads.at(i), cost.wall, cost.cpu, files / cost.wall,
                medians.byThreads.front().wall / cost.wall);
  }
  std::printf("\n");
  return medians;
}

int run(const std::string& directory, int rounds) {
  if (!bench::makeTapeFile(directory + "/probe", 0)) return kNoAttributes;
  const Medians fast = measure(directory + "/fast", 100000, std::chrono::microseconds(0), rounds);
  const Medians slow = measure(directory + "/slow", 10000, kDelay, rounds);
  const double speedup = slow.byThreads.front().wall / slow.byThreads.back().wall;
  const double processor = fast.byThreads.back().cpu / fast.byThreads[1].cpu;
  const bool met = speedup >= kTargetSpeedup && processor <= kTargetProcessor;
  std::printf(
      "calls that wait: %.1f times one thread's speed (at least %.0f); fast: %.2f times the processor time "
      "of "
      "two threads (at most %.2f): %s\n",
      speedup, kTargetSpeedup, processor, kTargetProcessor, met ? "met" : "MISSED");
  return met ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s DIRECTORY [ROUNDS]\n", argv[0]);
    return 2;
  }
  try {
    Logger log;
    if (log.LoadMessage("tamrix") != 0 || log.init(kUrgent) != 0) return 2;
    logger = &log;
    return run(argv[1], argc == 3 ? std::max(1, std::atoi(argv[2])) : 5);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 2;
  }
}
