// How well a plan predicts the drive time of a copy.
//
//     plan_bench TAMRIX TAMRIX_PLAN TAPE_VOLUME DIRECTORY
//
// For each of several requests it makes a modelled volume in DIRECTORY, lets TAMRIX_PLAN plan a copy of it,
// and then has the files read from the volume, by a copy with TAMRIX and one by one in directory order.
// Prints the planned hours beside those of the volume's own account.
//
// Ends with 0 when all predictions are within the target, 1 when one is not, 2 when something went wrong, 3
// when mounting is refused. DIRECTORY is left to the caller to remove.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/child_run.h"
#include "bench/mounted_volume.h"

namespace {

using tamrix::bench::MountedVolume;

constexpr double kTarget = 0.1;                  // of the modelled time
constexpr std::int64_t kLastBlock = 20'000'000;  // of a tape of 12 TB, somewhat before its end

struct Programs {
  std::string tamrix;
  std::string plan;
  std::string volume;
};

struct Request {
  const char* name;
  std::int64_t bytes;                // of each file
  std::vector<std::int64_t> blocks;  // where each begins, by name
};

std::vector<Request> makeRequests() {
  std::mt19937_64 random(1);
  std::vector<Request> requests = {{"contiguous, other names", 4'000'000, {}},
                                   {"1 in 5 of small files", 16'000, {}},
                                   {"scattered", 4'000'000, {}},
                                   {"a few of each wrap", 1'000'000, {}}};
  for (std::int64_t i = 0; i < 300; ++i) requests[0].blocks.push_back(kLastBlock / 3 + i * 8);
  for (std::int64_t i = 0; i < 10000; ++i) {
    if (random() % 5 == 0) requests[1].blocks.push_back(kLastBlock / 2 + i);
  }
  const auto anywhere = [&] { return static_cast<std::int64_t>(random() % kLastBlock); };
  for (int i = 0; i < 200; ++i) requests[2].blocks.push_back(anywhere());
  for (int i = 0; i < 1500; ++i) requests[3].blocks.push_back(anywhere());
  for (Request& request : requests) std::shuffle(request.blocks.begin(), request.blocks.end(), random);
  return requests;
}

void makeFiles(const Request& request, const std::string& directory) {
  std::filesystem::create_directories(directory + "/tape");
  std::ofstream layout(directory + "/layout");
  for (std::size_t i = 0; i < request.blocks.size(); ++i) {
    const std::string name = std::to_string(1000000 + i);
    layout << "b " << request.blocks[i] << ' ' << name << '\n';
    const std::string path = directory + "/tape/" + name;
    std::ofstream(path).close();
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(request.bytes));
  }
  if (!layout.flush()) throw std::runtime_error("cannot write to " + directory);
}

void require(const tamrix::bench::ChildRun& run) {
  if (run.end.status != 0) throw std::runtime_error("a run failed:\n" + run.text);
}

struct Prediction {
  double tapeOrder = 0;
  double directoryOrder = 0;
};

Prediction predict(const Programs& programs, MountedVolume& volume, const std::string& directory) {
  const std::string report = directory + "/report";
  require(tamrix::bench::runChild({programs.plan, "-srcpath=" + volume.path(), "-srcspec=*",
                                   "-dstpath=" + directory + "/copy", "-drive=lto8", "-report=" + report},
                                  directory + "/log"));
  nlohmann::json sums;
  std::ifstream in(report);
  for (std::string line; std::getline(in, line);) sums = nlohmann::json::parse(line);
  return {sums.at("volumes").at(0).at("tape_order_seconds"),
          sums.at("volumes").at(0).at("directory_order_seconds")};
}

void readByName(const std::string& path) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(path)) names.push_back(entry.path());
  for (const std::string& name : names) {
    std::ifstream file(name, std::ios::binary);
    std::vector<char> buffer(1 << 20);
    while (file.read(buffer.data(), static_cast<std::streamsize>(buffer.size()))) {
    }
  }
}

// Prints a line. Returns whether planned and modelled time agree.
bool compare(const char* name, const char* order, std::size_t files, double planned, double modelled) {
  const double off = planned / modelled - 1;
  std::printf("%-25s %-10s %6zu %10.1f %10.1f %+8.2f %%\n", name, order, files, planned, modelled, 100 * off);
  std::fflush(stdout);
  return std::abs(off) <= kTarget;
}

int measure(const Programs& programs, const std::string& work) {
  std::printf("%-25s %-10s %6s %10s %10s %10s\n", "LTO-8, seconds", "order", "files", "planned", "modelled",
              "off");
  bool met = true;
  for (const Request& request : makeRequests()) {
    const std::string directory = work + "/" + std::to_string(request.blocks.size());
    makeFiles(request, directory);
    MountedVolume copied(programs.volume, directory, {"-drive=lto8"});
    if (!copied.isMounted()) return tamrix::bench::kMountRefused;
    const Prediction planned = predict(programs, copied, directory);
    require(tamrix::bench::runChild({programs.tamrix, "-srcpath=" + copied.path(), "-srcspec=*", "-sparse",
                                     "-dstpath=" + directory + "/copy"},
                                    directory + "/log"));
    met = compare(request.name, "tape", request.blocks.size(), planned.tapeOrder, copied.finish().back()) &&
          met;
    MountedVolume read(programs.volume, directory, {"-drive=lto8"});
    readByName(read.path());
    met =
        compare("", "directory", request.blocks.size(), planned.directoryOrder, read.finish().back()) && met;
    std::filesystem::remove_all(directory);
  }
  std::printf("\nwithin %.0f %%: %s\n", 100 * kTarget, met ? "met" : "MISSED");
  return met ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s TAMRIX TAMRIX_PLAN TAPE_VOLUME DIRECTORY\n", argv[0]);
    return 2;
  }
  try {
    return measure({argv[1], argv[2], argv[3]}, argv[4]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 2;
  }
}
