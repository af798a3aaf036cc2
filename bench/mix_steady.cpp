// Whether tamrix keeps its speed and its memory, run after run, on a quiet machine and beside another
// process.
//
//     mix_steady_bench TAMRIX DIRECTORY [ROUNDS [SCALE]]
//
// Copies the works of bench/compare named below within DIRECTORY, with tamrix and with cp in turn, and prints
// each round's times and peak memory. Half of the rounds run beside a process that loads one core and its way
// to memory. SCALE divides the work's size.
//
// Ends with 0, or 1 when a copy failed.
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/child_run.h"
#include "bench/compare_work.h"
#include "bench/kept_memory.h"

namespace {

using tamrix::bench::ChildRun;
using tamrix::bench::Target;
using tamrix::bench::tell;
using tamrix::bench::Work;

constexpr double kLeastQuietMedian = 1.0;
constexpr double kLeastBesideLoad = 0.8;
constexpr double kMostPeak = 32.0;            // MiB
constexpr std::size_t kLoadBytes = 64 << 20;  // more than a cache holds

// Copies memory without end on the last core that the program may use.
[[noreturn]] void load() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  cpu_set_t cores;
  sched_getaffinity(0, sizeof(cores), &cores);
  int last = CPU_SETSIZE - 1;
  while (last > 0 && !CPU_ISSET(static_cast<std::size_t>(last), &cores)) --last;
  CPU_ZERO(&cores);
  CPU_SET(static_cast<std::size_t>(last), &cores);
  sched_setaffinity(0, sizeof(cores), &cores);
  void* const memory = mmap(nullptr, 2 * kLoadBytes, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (memory == MAP_FAILED) _exit(1);
  for (auto* const bytes = static_cast<volatile char*>(memory);;) {
    std::memcpy(memory, static_cast<char*>(memory) + kLoadBytes, kLoadBytes);
    bytes[kLoadBytes] = static_cast<char>(bytes[0] + 1);  // what is copied is used
  }
}

// The process that loads a core, for the length of a scope.
class Load {
 public:
  Load() : pid_(fork()) {
    if (pid_ < 0) throw std::runtime_error("no process for the load");
    if (pid_ == 0) load();
  }
  ~Load() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

 private:
  const pid_t pid_;
};

ChildRun copyOnce(tamrix::bench::KeptMemory& memory, const std::string& to, const std::string& command) {
  std::filesystem::create_directory(to);
  memory.give();
  ChildRun run = tamrix::bench::runChild({"sh", "-c", command}, to + ".log");
  std::filesystem::remove_all(to);
  memory.take();
  if (run.end.status != 0) throw std::runtime_error(command + ": " + run.text);
  return run;
}

void measure(const Work& work, const std::string& program, const std::string& directory, int rounds,
             bool besideLoad) {
  const std::string from = directory + "/from";
  const std::string to = directory + "/to";
  const std::string own = program + " -srcpath=" + from + " -srcspec='*' -recursive -dstpath=" + to +
                          " -ignore-vendor-check -loglevel=URGENT";
  const std::string cp = "cp -r --preserve=timestamps,xattr " + from + "/. " + to;
  std::printf("\n%s, %s\n  %5s %10s %10s %10s %10s\n", work.name.c_str(),
              besideLoad ? "beside a load on one core" : "quiet", "round", "tamrix s", "cp s", "over cp",
              "peak MiB");
  tamrix::bench::KeptMemory memory(tamrix::bench::memoryOf(work));
  std::vector<double> ratios;
  std::vector<double> peaks;
  std::optional<Load> other;
  if (besideLoad) other.emplace();
  for (int round = 1; round <= rounds; ++round) {
    // Who comes second finds the memory that the first has given back.
    ChildRun runs[2];
    for (const int turn : {round % 2, 1 - round % 2}) runs[turn] = copyOnce(memory, to, turn == 0 ? own : cp);
    ratios.push_back(runs[1].wall / runs[0].wall);
    peaks.push_back(runs[0].end.peak / (1 << 20));
    std::printf("  %5d %10.3f %10.3f %10.2f %10.1f\n", round, runs[0].wall, runs[1].wall, ratios.back(),
                peaks.back());
    std::fflush(stdout);
  }
  const double least = *std::min_element(ratios.begin(), ratios.end());
  const double median = tamrix::bench::median(ratios);
  const double most = *std::max_element(peaks.begin(), peaks.end());
  if (besideLoad) {
    std::printf("  speed over cp's, median %.2f\n", median);
    tell("speed over cp's, least", least, Target::kAtLeast, kLeastBesideLoad);
  } else {
    std::printf("  speed over cp's, least %.2f\n", least);
    tell("speed over cp's, median", median, Target::kAtLeast, kLeastQuietMedian);
  }
  tell("MiB of memory, most", most, Target::kAtMost, kMostPeak);
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 3 ? std::atoi(argv[3]) : 20;
  const int scale = argc > 4 ? std::atoi(argv[4]) : 1;
  if (argc < 3 || rounds < 1 || scale < 1) {
    std::fprintf(stderr, "usage: mix_steady_bench TAMRIX DIRECTORY [ROUNDS [SCALE]]\n");
    return 2;
  }
  try {
    for (const Work& work : tamrix::bench::allWork(scale)) {
      if (work.name != "log-uniform mix" && work.name != "64 files of 32 MiB") continue;
      const std::string from = std::string(argv[2]) + "/from";
      if (!tamrix::bench::makeWork(work, from, true)) throw std::runtime_error("no user attributes here");
      for (const bool besideLoad : {false, true}) measure(work, argv[1], argv[2], rounds, besideLoad);
      std::filesystem::remove_all(from);
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "mix_steady_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
