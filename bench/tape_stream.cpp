// Does the tape keep running while the other side of a copy stalls, or is slower than the drive?
//
//     tape_stream_bench TAMRIX TAPE_VOLUME DIRECTORY [ROUNDS [DIRECTION [ROW [PROGRAM]]]]
//
// Mounts two modelled volumes in DIRECTORY, one that takes the time of a tape drive with its buffer and one
// that takes that of a disk that stalls, and lets tamrix and what people use instead copy from one to the
// other, in turns. Prints the medians of how often the tape stopped, for a terabyte and in an hour, and of
// the hours that the drive takes for a full tape beyond what it or the disk needs; and, on standard error,
// each run. DIRECTION (from-tape, to-tape), ROW and PROGRAM restrict it to what has them in its name.
//
// It runs in real time, with all times a tenth and all rates a quarter of what they stand for, so that all
// sizes are a fortieth; what is printed stands for full scale. Files are zeros, nothing is kept of them, and
// neither side has a page cache.
//
// Ends with 0; 2 when something went wrong; 3 when mounting is refused.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/child_run.h"
#include "bench/mounted_volume.h"
#include "drive/tape_drive.h"

namespace {

using tamrix::bench::median;
using tamrix::bench::MountedVolume;

constexpr double kTimes = 0.1;  // of those that are meant
constexpr double kRates = 0.25;
constexpr double kSizes = kTimes * kRates;

constexpr double kLowestRate = 110e6;  // bytes/s; assumed, as is the size of the buffer
constexpr double kDriveBuffer = 1e9;   // bytes
constexpr double kDiskRate = 1000e6;   // bytes/s, while it does not stall
constexpr double kStallEvery = 10;     // seconds
constexpr int kFiles = 20;
constexpr std::int64_t kBlock = 524288;

struct Row {
  const char* name;
  double rate;   // of the other side, bytes/s
  double stall;  // seconds of every kStallEvery
  double seconds;
};

constexpr Row kRows[] = {
    {"stalls of 0.5 s", kDiskRate, 0.5, 60},
    {"stalls of 1.5 s", kDiskRate, 1.5, 60},
    {"stalls of 4 s", kDiskRate, 4, 60},
    {"stalls of 5 s", kDiskRate, 5, 60},
    {"250 MB/s", 250e6, 0, 80},
    {"60 MB/s", 60e6, 0, 240},
};

struct Peer {
  std::string name;
  std::string command;
  std::vector<double> stops{};   // for a terabyte
  std::vector<double> hourly{};  // stops an hour
  std::vector<double> lost{};    // hours, of a full tape
};

std::string scaledSize(double bytes) { return std::to_string(static_cast<std::int64_t>(bytes * kSizes)); }

std::vector<Peer> makePeers(const std::string& tamrix, const std::string& program) {
  std::vector<Peer> peers;
  const std::pair<const char*, double> memories[] = {{"400 MB", 400 << 20}, {"4 GB", 4096.0 * (1 << 20)}};
  for (const auto& [name, bytes] : memories) {
    peers.push_back({.name = std::string("tamrix, ").append(name),
                     .command = tamrix + " -srcpath=$from -srcspec='*' -dstpath=$to -ignore-vendor-check" +
                                " -loglevel=URGENT -total-buffer-size=" + scaledSize(bytes)});
  }
  peers.push_back({.name = "cp", .command = "cp -r --preserve=timestamps,xattr $from/. $to"});
  peers.push_back({.name = "rsync", .command = "rsync -rtX --whole-file $from/ $to/"});
  // With tar's own 10 KiB a volume without page cache would not keep up.
  for (const auto& [name, bytes] : memories) {
    std::string command = "tar -b 256 -C $from --xattrs -cf - . | mbuffer -q -s 128k -m ";
    command += scaledSize(bytes) + "b | tar -b 256 -C $to --xattrs --xattrs-include='user.*' -xf -";
    peers.push_back({.name = std::string("mbuffer, ").append(name), .command = std::move(command)});
  }
  std::erase_if(peers, [&](const Peer& peer) { return peer.name.find(program) == std::string::npos; });
  return peers;
}

// As model/stream.h wants it.
std::string streamOption(const std::vector<double>& figures) {
  std::string option = "-stream";
  for (const double figure : figures) {
    option += option == "-stream" ? '=' : ':';
    option += std::to_string(figure);
  }
  return option;
}

void makeFiles(const std::string& directory, std::int64_t size) {
  std::filesystem::create_directories(directory + "/tape");
  std::ofstream layout(directory + "/layout");
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = std::to_string(100 + i);
    layout << "b " << 100 + i * (size / kBlock + 1) << ' ' << name << '\n';
    std::ofstream(directory + "/tape/" + name).close();
    std::filesystem::resize_file(directory + "/tape/" + name, static_cast<std::uintmax_t>(size));
  }
  if (!layout.flush()) throw std::runtime_error("cannot write to " + directory);
}

class Bench {
 public:
  // `program`: restricts it to these.
  Bench(std::string tamrix, std::string volume, std::string directory, std::string program)
      : tamrix_(std::move(tamrix)),
        volume_(std::move(volume)),
        directory_(std::move(directory)),
        program_(std::move(program)) {}

  // Returns an exit status.
  int measure(const Row& row, bool toTape, int rounds) const {
    std::vector<Peer> peers = makePeers(tamrix_, program_);
    for (int round = 0; round < rounds; ++round) {
      for (std::size_t i = 0; i < peers.size(); ++i) {
        Peer& peer = peers[(i + static_cast<std::size_t>(round)) % peers.size()];
        if (const int status = copyOnce(row, toTape, peer); status != 0) return status;
      }
    }
    for (const Peer& peer : peers) {
      std::printf("| %s | %s | %s | %.0f | %.0f | %.1f |\n", toTape ? "to tape" : "from tape", row.name,
                  peer.name.c_str(), median(peer.stops), median(peer.hourly), median(peer.lost));
    }
    std::fflush(stdout);
    return 0;
  }

 private:
  int copyOnce(const Row& row, bool toTape, Peer& peer) const {
    const tamrix::tape::Generation& drive = *tamrix::tape::findGeneration("lto9");
    const std::string from = directory_ + "/from";
    const std::string to = directory_ + "/to";
    const double possible = std::min(drive.bytesPerSecond, row.rate * (1 - row.stall / kStallEvery));
    const auto size = static_cast<std::int64_t>(possible * row.seconds * kSizes / kFiles);
    makeFiles(from, size);
    std::filesystem::create_directories(to + "/tape");
    const std::string tape = streamOption({drive.bytesPerSecond * kRates, kLowestRate * kRates,
                                           kDriveBuffer * kSizes, tamrix::tape::kRestartSeconds * kTimes});
    const std::string disk = streamOption({row.rate * kRates, row.stall * kTimes, kStallEvery * kTimes});
    const std::vector<std::string> tapeOptions = {tape};
    const std::vector<std::string> diskOptions = {"-vendor=", disk};
    MountedVolume source(volume_, from, toTape ? diskOptions : tapeOptions);
    MountedVolume destination(volume_, to, toTape ? tapeOptions : diskOptions);
    if (!source.isMounted() || !destination.isMounted()) return tamrix::bench::kMountRefused;
    const tamrix::bench::ChildRun run = tamrix::bench::runChild(
        {"sh", "-c", "from=" + source.path() + "; to=" + destination.path() + "; " + peer.command},
        directory_ + "/log");
    const std::vector<double> read = source.finish();
    const std::vector<double> written = destination.finish();
    // The status says less: programs complain of attributes that a tape volume doesn't let them remove.
    if (written.at(1) != kFiles * static_cast<double>(size)) {
      throw std::runtime_error(peer.name + " did not copy all: " + run.text);
    }
    const std::vector<double>& account = toTape ? written : read;
    const double seconds = account.at(2) / kTimes;
    const double bytes = written.at(1) / kSizes;
    peer.stops.push_back(account.at(0) / bytes * 1e12);
    peer.hourly.push_back(account.at(0) / seconds * 3600);
    // Below 0 when the ring still holds what the drive has delivered.
    peer.lost.push_back(std::max(0.0, seconds - bytes / possible) / bytes * drive.capacity / 3600);
    std::fprintf(stderr, "%s, %s, %s: %.0f stops, %.1f s, %.1f GB\n", toTape ? "to tape" : "from tape",
                 row.name, peer.name.c_str(), account.at(0), seconds, bytes / 1e9);
    std::filesystem::remove_all(from);
    std::filesystem::remove_all(to);
    return 0;
  }

  const std::string tamrix_, volume_;  // programs
  const std::string directory_;
  const std::string program_;
};

int measureAll(const Bench& bench, int rounds, const std::string& direction, const std::string& which) {
  std::printf(
      "| | the other side | program, memory | stops/TB | stops/h | hours lost of a full tape |\n"
      "|---|---|---|--:|--:|--:|\n");
  for (const bool toTape : {false, true}) {
    if (std::string(toTape ? "to-tape" : "from-tape").find(direction) == std::string::npos) continue;
    for (const Row& row : kRows) {
      if (std::string(row.name).find(which) == std::string::npos) continue;
      if (const int status = bench.measure(row, toTape, rounds); status != 0) return status;
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 4 ? std::atoi(argv[4]) : 3;
  if (argc < 4 || rounds < 1) {
    std::fprintf(stderr, "usage: %s TAMRIX TAPE_VOLUME DIRECTORY [ROUNDS [DIRECTION [ROW [PROGRAM]]]]\n",
                 argv[0]);
    return 2;
  }
  try {
    const Bench bench(argv[1], argv[2], argv[3], argc > 7 ? argv[7] : "");
    return measureAll(bench, rounds, argc > 5 ? argv[5] : "", argc > 6 ? argv[6] : "");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 2;
  }
}
