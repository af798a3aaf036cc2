// What a long copy leaves of other processes' pages.
//
//     manners_bench TAMRIX DIRECTORY [ROUNDS [SCALE [BEFORE]]]
//
// Locks memory until as much is left as kMemory says, so that the rest of the system has a smaller machine.
// Then each program copies 12 GiB within DIRECTORY, in turn: files of 3 GiB, 1 GiB, 64 MiB and 4 MiB, a
// quarter each. Before each copy the sources are dropped from the page cache and another file of 2 GiB is
// read, by another process. Printed are the time of the copy, the time until it is on disk, how much of
// that file is still in the cache, and the longest time in which nothing was written. A system may give up
// idle pages by itself (DAMON does), so the last program copies nothing for 20 s. SCALE divides all sizes.
//
// Ends with 0, or 1 when a copy failed or was not equal.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/child_run.h"
#include "bench/page_cache_state.h"

namespace {

using Clock = std::chrono::steady_clock;
using tamrix::bench::cachedBelow;
using tamrix::bench::dropBelow;
using tamrix::bench::makeFile;
using tamrix::bench::median;
using tamrix::bench::Target;
using tamrix::bench::tell;

constexpr std::int64_t kMiB = 1 << 20;
constexpr std::int64_t kGiB = 1 << 30;
constexpr std::int64_t kCopied = 12 * kGiB;
constexpr std::int64_t kUsed = 2 * kGiB;
constexpr std::int64_t kMemory = 8 * kGiB;
constexpr std::int64_t kFileSizes[] = {3 * kGiB, kGiB, 64 * kMiB, 4 * kMiB};
constexpr int kSampleMs = 2;

constexpr double kLeastKept = 0.9;
constexpr double kLeastSpeed = 0.97;  // of a build before; 3 % are noise

double secondsSince(Clock::time_point begun) {
  return std::chrono::duration<double>(Clock::now() - begun).count();
}

struct Program {
  std::string name;
  std::vector<std::string> words;
  bool hasStalls = true;  // its first process is the one that writes
  bool copies = true;

  std::vector<double> wall{};    // seconds
  std::vector<double> onDisk{};  // seconds, until everything is written back
  std::vector<double> cpu{};     // seconds
  std::vector<double> kept{};    // share of the other file
  std::vector<double> left{};    // GiB of sources and copies in the cache
  std::vector<double> stall{};   // seconds, the longest without a write
};

// What the process of a pidfd has written so far.
std::int64_t writtenBy(int handle) {
  std::ifstream info("/proc/self/fdinfo/" + std::to_string(handle));
  std::string word;
  while (info >> word && word != "Pid:") {
  }
  info >> word;
  std::ifstream io("/proc/" + word + "/io");
  for (std::int64_t bytes = 0; io >> word;) {
    if (word == "wchar:" && io >> bytes) return bytes;
  }
  return 0;
}

// Waits for the child; returns the longest time between its first and last writes in which it wrote nothing.
double watch(const tamrix::model::ChildProcess& child) {
  double longest = 0;
  std::int64_t before = 0;
  auto since = Clock::now();
  pollfd end = {child.handle(), POLLIN, 0};
  while (poll(&end, 1, kSampleMs) == 0) {
    const std::int64_t now = writtenBy(child.handle());
    if (now == before) continue;
    if (before > 0) longest = std::max(longest, secondsSince(since));
    before = now;
    since = Clock::now();
  }
  return longest;
}

void copyOnce(Program& program, const std::string& directory, bool check) {
  const std::string from = directory + "/from";
  const std::string to = directory + "/to";
  std::filesystem::create_directory(to);
  dropBelow(from);
  dropBelow(directory + "/used");
  (void)tamrix::bench::runChild({"cat", directory + "/used/file"}, to + ".log");
  sync();
  // Where memory is short, reading the file may push out its own first pages.
  const auto used = static_cast<double>(cachedBelow(directory + "/used"));
  const auto begun = Clock::now();
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  tamrix::model::ChildProcess child({program.words, {{STDOUT_FILENO, nowhere}}});
  close(nowhere);
  const double stall = watch(child);
  const tamrix::model::ChildEnd end = child.wait();
  program.wall.push_back(secondsSince(begun));
  sync();
  program.onDisk.push_back(secondsSince(begun));
  program.cpu.push_back(end.cpu);
  program.stall.push_back(stall);
  program.kept.push_back(static_cast<double>(cachedBelow(directory + "/used")) / used);
  program.left.push_back(static_cast<double>(cachedBelow(from) + cachedBelow(to)) / kGiB);
  if (end.status != 0) throw std::runtime_error(program.name + " failed");
  if (check && program.copies &&
      tamrix::bench::runChild({"diff", "-r", from, to}, to + ".log").end.status != 0)
    throw std::runtime_error(program.name + "'s copy is not equal");
  std::filesystem::remove_all(to);
}

void print(const std::vector<Program>& programs) {
  std::printf("%-14s %8s %8s %8s %8s %8s %10s\n", "", "seconds", "on disk", "cpu s", "stall s", "kept %",
              "left GiB");
  for (const Program& program : programs) {
    std::printf("%-14s %8.1f %8.1f %8.1f ", program.name.c_str(), median(program.wall),
                median(program.onDisk), median(program.cpu));
    if (program.hasStalls) {
      std::printf("%8.2f", *std::max_element(program.stall.begin(), program.stall.end()));
    } else {
      std::printf("%8s", "");
    }
    std::printf(" %8.1f %10.2f\n", 100 * median(program.kept), median(program.left));
  }
}

void measure(std::vector<Program>& programs, const std::string& directory, int rounds, int scale) {
  for (const std::int64_t size : kFileSizes) {
    const std::string to = directory + "/from/" + std::to_string(size / kMiB);
    std::filesystem::create_directories(to);
    const std::int64_t count = kCopied / static_cast<std::int64_t>(std::size(kFileSizes)) / size;
    for (std::int64_t i = 0; i < count; ++i) makeFile(to + "/" + std::to_string(i), size / scale);
  }
  std::filesystem::create_directory(directory + "/used");
  makeFile(directory + "/used/file", kUsed / scale);
  dropBelow(directory);
  const std::int64_t spare = tamrix::bench::availableMemory() - kMemory / scale;
  if (spare <= 0) throw std::runtime_error("too little memory available");
  const tamrix::bench::LockedMemory rest(static_cast<std::size_t>(spare));
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < programs.size(); ++i) {
      Program& program = programs[(i + static_cast<std::size_t>(round)) % programs.size()];
      copyOnce(program, directory, round == 0);
      std::printf("round %d, %s: %.1f s, %.1f s on disk, stall %.2f s, %.1f %% kept\n", round + 1,
                  program.name.c_str(), program.wall.back(), program.onDisk.back(), program.stall.back(),
                  100 * program.kept.back());
      std::fflush(stdout);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 3 ? std::atoi(argv[3]) : 3;
  const int scale = argc > 4 ? std::atoi(argv[4]) : 1;
  if (argc < 3 || rounds < 1 || scale < 1) {
    std::fprintf(stderr, "usage: manners_bench TAMRIX DIRECTORY [ROUNDS [SCALE [BEFORE]]]\n");
    return 2;
  }
  const std::string directory = argv[2];
  const std::string from = directory + "/from";
  const std::string to = directory + "/to";
  const std::vector<std::string> options = {"-srcpath=" + from, "-srcspec=*",           "-recursive",
                                            "-dstpath=" + to,   "-ignore-vendor-check", "-loglevel=URGENT"};
  std::vector<Program> programs;
  const auto add = [&](const char* name, const char* program) {
    programs.push_back({.name = name, .words = {program}});
    programs.back().words.insert(programs.back().words.end(), options.begin(), options.end());
  };
  add("tamrix", argv[1]);
  if (argc > 5) add("tamrix before", argv[5]);
  programs.push_back({.name = "cp", .words = {"cp", "-r", "--preserve=timestamps,xattr", from + "/.", to}});
  programs.push_back({.name = "rsync",
                      .words = {"rsync", "-rtX", "--whole-file", from + "/", to + "/"},
                      .hasStalls = false});
  programs.push_back(
      {.name = "no copy, 20 s", .words = {"sleep", "20"}, .hasStalls = false, .copies = false});
  try {
    measure(programs, directory, rounds, scale);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "manners_bench: %s\n", error.what());
    return 1;
  }
  print(programs);
  const Program& own = programs.front();
  tell("of the other file kept, over no copy", median(own.kept) / median(programs.back().kept),
       Target::kAtLeast, kLeastKept);
  if (argc > 5)
    tell("speed over that before", median(programs[1].wall) / median(own.wall), Target::kAtLeast,
         kLeastSpeed);
  return 0;
}
