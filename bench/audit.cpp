// What an audit costs: a large file beside programs that only compute checksums, and reports of many files.
//
//     audit_bench TAMRIX_AUDIT DIRECTORY [ROUNDS]
//
// In DIRECTORY, which should be in memory: makes a file of 2 GiB that is sealed with both checksums, and
// trees of 100,000 and a million files with the attributes of a tape volume. Round by round, the order moving
// on by one each time, every program reads the large file. Then the trees are audited with -report. Prints
// medians and what they come to against the targets.
//
// Ends with 0 when the targets are met, 1 when one is missed, 2 when something went wrong, 3 when DIRECTORY
// takes no user attributes. DIRECTORY is left to the caller to remove.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/child_run.h"
#include "bench/tape_tree.h"

namespace {

using tamrix::bench::ChildRun;

constexpr std::int64_t kLargeFile = 2LL << 30;
constexpr double kTimeRatio = 11;  // for ten times the files: linear, and a tenth for noise
constexpr double kTargetBytesPerFile = 1024;
constexpr int kNoAttributes = 3;

// A program at work, and how its runs went.
struct Entry {
  std::string name;
  std::vector<std::string> words;
  std::vector<double> wall{};
  std::vector<double> cpu{};
  std::vector<double> peak{};

  void run(const std::string& log) {
    const ChildRun run = tamrix::bench::runChild(words, log);
    if (run.end.status != 0) throw std::runtime_error(name + " failed; its log says:\n" + run.text);
    wall.push_back(run.wall);
    cpu.push_back(run.end.cpu);
    peak.push_back(run.end.peak);
  }
  double seconds() const { return tamrix::bench::median(wall); }
  double cpuSeconds() const { return tamrix::bench::median(cpu); }
};

void makeLargeFile(const std::string& path) {
  std::mt19937_64 random(1);
  std::vector<std::uint64_t> words(1U << 20);
  std::filesystem::create_directory(std::filesystem::path(path).parent_path());
  std::ofstream out(path, std::ios::binary);
  const auto piece = static_cast<std::streamsize>(words.size() * sizeof(words[0]));
  for (std::int64_t done = 0; done < kLargeFile; done += piece) {
    std::generate(words.begin(), words.end(), [&] { return random(); });
    out.write(reinterpret_cast<const char*>(words.data()), piece);
  }
  if (!out.flush()) throw std::runtime_error("can't write " + path);
}

// Returns whether the audit by xxh128 is as fast as the programs that it is to be as fast as.
bool compareSpeeds(const std::string& program, const std::string& work, int rounds) {
  const std::string directory = work + "/large";
  const std::string file = directory + "/file";
  makeLargeFile(file);
  const std::vector<std::string> audit = {program,
                                          "-audit=files",
                                          "-srcpath=" + directory,
                                          "-ignore-vendor-check",
                                          "-loglevel=URGENT",
                                          "-require-checksum"};
  const auto auditBy = [&](const std::string& checksum) {
    std::vector<std::string> words = audit;
    words.push_back("-checksum=" + checksum);
    return words;
  };
  for (const char* checksum : {"xxh128", "modsum64"}) {
    Entry seal{"sealing", auditBy(checksum)};
    seal.words.insert(seal.words.end(), {"-checksum-update=newonly", "-require-checksum=disable"});
    seal.run(work + "/log");
  }
  std::vector<Entry> entries = {{"tamrix-audit, xxh128", auditBy("xxh128")},
                                {"tamrix-audit, modsum64", auditBy("modsum64")},
                                {"sha256sum", {"sha256sum", file}},
                                {"b3sum", {"b3sum", file}},
                                {"b3sum, one thread", {"b3sum", "--num-threads=1", file}},
                                {"xxh128sum", {"xxh128sum", file}}};
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
      entries[(i + static_cast<std::size_t>(round)) % entries.size()].run(work + "/log");
    }
  }
  std::printf("A file of 2 GiB, median of %d rounds\n\n", rounds);
  std::printf("%-24s %8s %8s %8s %18s\n", "", "s", "GB/s", "cpu s", "tamrix-audit's speed");
  const double ours = entries.front().seconds();
  for (const Entry& entry : entries) {
    std::printf("%-24s %8.3f %8.2f %8.3f %17.2fx\n", entry.name.c_str(), entry.seconds(),
                static_cast<double>(kLargeFile) / 1e9 / entry.seconds(), entry.cpuSeconds(),
                entry.seconds() / ours);
  }
  std::filesystem::remove_all(directory);
  const bool met = ours <= entries[2].seconds() && ours <= entries[3].seconds();
  std::printf("\nno slower than sha256sum and b3sum: %s\n\n", met ? "met" : "MISSED");
  return met;
}

// Whether the report at `path` is complete and tells of `files` files.
bool isWhole(const std::string& path, int files) {
  std::ifstream report(path);
  std::string line;
  std::string last;
  int lines = 0;
  for (; std::getline(report, line); ++lines) last.swap(line);
  return lines == files + 1 && last.starts_with("{\"sums\":true,\"status\":0,");
}

// Returns whether both kinds of audit meet the targets.
bool compareReports(const std::string& program, const std::string& work, int rounds) {
  constexpr std::array kCounts = {0, 100000, 1000000};
  for (const int count : kCounts) tamrix::bench::makeTapeTree(work + "/" + std::to_string(count), count);
  bool allMet = true;
  std::printf("%-12s %9s %8s %8s %11s\n", "report of", "files", "s", "cpu s", "bytes/file");
  for (const char* kind : {"tape", "files"}) {
    std::array<Entry, kCounts.size()> entries;
    for (int round = 0; round < rounds; ++round) {
      for (std::size_t i = 0; i < kCounts.size(); ++i) {
        const std::string report = work + "/report";
        entries[i].name = "-audit=" + std::string(kind);
        entries[i].words = {program,
                            entries[i].name,
                            "-srcpath=" + work + "/" + std::to_string(kCounts[i]),
                            "-recursive",
                            "-ignore-vendor-check",
                            "-loglevel=URGENT",
                            "-report=" + report};
        entries[i].run(work + "/log");
        if (!isWhole(report, kCounts[i])) throw std::runtime_error(entries[i].name + ": half a report");
      }
    }
    const auto perFile = [&](std::size_t i) {
      return (tamrix::bench::median(entries[i].peak) - tamrix::bench::median(entries[0].peak)) / kCounts[i];
    };
    for (std::size_t i = 1; i < kCounts.size(); ++i) {
      std::printf("%-12s %9d %8.3f %8.3f %11.0f\n", entries[i].name.c_str(), kCounts[i], entries[i].seconds(),
                  entries[i].cpuSeconds(), perFile(i));
    }
    // Processor time: what the clock says depends on what else the machine does.
    const double ratio = entries[2].cpuSeconds() / entries[1].cpuSeconds();
    const bool met = ratio <= kTimeRatio && perFile(2) <= kTargetBytesPerFile;
    std::printf("ten times the files: %.2f times the cpu time (at most %.0f; by the clock %.2f), %s\n", ratio,
                kTimeRatio, entries[2].seconds() / entries[1].seconds(), met ? "met" : "MISSED");
    allMet = allMet && met;
  }
  return allMet;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc > 4) {
    std::fprintf(stderr, "usage: %s TAMRIX_AUDIT DIRECTORY [ROUNDS]\n", argv[0]);
    return 2;
  }
  try {
    const std::string work = argv[2];
    const int rounds = argc == 4 ? std::max(1, std::atoi(argv[3])) : 5;
    if (!tamrix::bench::makeTapeFile(work + "/probe", 0)) return kNoAttributes;
    const bool fast = compareSpeeds(argv[1], work, rounds);
    const bool linear = compareReports(argv[1], work, std::min(rounds, 3));
    return fast && linear ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 2;
  }
}
