// What the order in which files are read costs in tape time.
//
//     tape_order_bench TAMRIX DIRECTORY [5|6|7|8|9|head]
//
// For each of several requests it makes a sample volume of empty files with tape positions in DIRECTORY, has
// the program TAMRIX list it for a copy (an unusable buffer size ends the run between listing and copying),
// and takes the order from the log. Prints, under the model of tape_drive.h, the tape hours of directory
// order, of that order and of an estimated best one. The default is LTO-9.
//
// With "head" it prints instead, for one small request, where the head is in directory order and in the
// program's: a line for each movement, "seconds metres seconds metres read|wind" from where to where, and two
// empty lines between the orders.
//
// Ends with 0 when all was compared, 2 when something went wrong, 3 when DIRECTORY takes no user attributes.
// DIRECTORY is left to the caller to remove.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "bench/child_run.h"
#include "bench/read_order.h"
#include "drive/tape_drive.h"

namespace {

using tamrix::tape::Drive;
using tamrix::tape::Generation;
using tamrix::tape::Order;
using tamrix::tape::Stretch;

constexpr std::int64_t kBlock = 524288;  // bytes, as LTFS formats a tape
constexpr std::int64_t kMega = 1000000;
constexpr int kNoAttributes = 3;
constexpr std::uint64_t kSeed = 1;

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Files that are wanted, in directory order: by name.
struct Request {
  const char* name;
  const char* directory;
  std::vector<std::int64_t> blocks;  // of the data partition, where each file begins
  std::int64_t bytes;                // of each file
};

enum class Names { kAsWritten, kOther };

// Every `every`-th of `count` files of `bytes` that were written one after another from `firstBlock` on.
std::vector<std::int64_t> pick(std::int64_t count, std::int64_t bytes, std::int64_t every, Names names,
                               std::mt19937_64& random, std::int64_t firstBlock = 0) {
  const std::int64_t blocksEach = (bytes + kBlock - 1) / kBlock;
  std::vector<std::int64_t> blocks;
  for (std::int64_t i = 0; i < count; ++i) {
    if (random() % static_cast<std::uint64_t>(every) == 0) blocks.push_back(firstBlock + i * blocksEach);
  }
  if (names == Names::kOther) std::shuffle(blocks.begin(), blocks.end(), random);
  return blocks;
}

std::vector<Request> makeRequests(const Generation& generation, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  const Drive drive(generation);
  const auto dataBytes = static_cast<std::int64_t>(generation.capacity) - drive.place('b', 0) - 10000 * kMega;
  const auto fitting = [&](std::int64_t bytes) { return dataBytes / (bytes + kBlock); };
  const std::int64_t third = dataBytes / kBlock / 3;
  const auto large = std::min<std::int64_t>(2000, fitting(1000 * kMega) / 2);
  const auto other = Names::kOther;
  return {
      {"contiguous, names in order", "contiguous",
       pick(large, 1000 * kMega, 1, Names::kAsWritten, random, third), 1000 * kMega},
      {"contiguous, other names", "renamed", pick(large, 1000 * kMega, 1, other, random, third),
       1000 * kMega},
      {"contiguous, small files", "small", pick(10000, kMega, 1, other, random, third), kMega},
      {"1 in 50 of 20 MB files", "sparse20", pick(fitting(20 * kMega), 20 * kMega, 50, other, random),
       20 * kMega},
      {"1 in 50 of 200 MB files", "sparse200", pick(fitting(200 * kMega), 200 * kMega, 50, other, random),
       200 * kMega},
      {"1 in 50 of 1 GB files", "sparse1000", pick(fitting(1000 * kMega), 1000 * kMega, 50, other, random),
       1000 * kMega},
      {"scattered: 100 of 1 GB", "scattered",
       pick(fitting(1000 * kMega), 1000 * kMega, fitting(1000 * kMega) / 100, other, random), 1000 * kMega},
  };
}

std::string fileName(std::size_t number) {
  const std::string digits = std::to_string(number);
  return "file-" + std::string(6 - digits.size(), '0') + digits;
}

// Returns false when the file system takes no user attributes.
bool makeFile(const std::string& path, std::int64_t block, std::int64_t bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0 || ftruncate(fd, bytes) != 0) fail(path);
  const std::pair<const char*, std::string> attributes[] = {
      {"user.ltfs.startblock", std::to_string(block)},
      {"user.ltfs.partition", "b"},
      {"user.ltfs.volumeUUID", "5f0c2d1e-8a44-4f0b-9c11-7d2e60b1a9f3"},
      {"user.ltfs.softwareVendor", "VOQ"},
  };
  bool taken = true;
  for (const auto& [name, value] : attributes) {
    if (fsetxattr(fd, name, value.data(), value.size(), 0) == 0) continue;
    if (errno != ENOTSUP) fail(path);
    taken = false;
  }
  close(fd);
  return taken;
}

// The order in which the program means to copy the files of `directory`.
Order programOrder(const std::string& program, const std::string& directory, std::size_t count) {
  const std::string log = directory + ".log";
  tamrix::bench::runChild({program, "-srcpath=" + directory, "-srcspec=*", "-dstpath=" + directory + ".copy",
                           "-buffer-size=0", "-loglevel=DEBUG"},
                          log);
  Order order;
  std::ifstream in(log);
  for (std::string line; std::getline(in, line);) {
    const std::size_t name = line.find(", file file-");
    if (!line.starts_with("FRM:gl - Ext: ") || name == std::string::npos) continue;
    order.push_back(std::stoi(line.substr(name + 12, 6)));
  }
  Order sorted = order;
  std::sort(sorted.begin(), sorted.end());
  Order all(count);
  std::iota(all.begin(), all.end(), 0);
  if (sorted != all) throw std::runtime_error("the program did not list every file once; see " + log);
  return order;
}

// A request on a drive, and the two orders in which it may be read.
struct Reading {
  std::vector<Stretch> files;
  Order byName;
  Order tamrix;
};

Reading prepare(const Drive& drive, const Request& request, const std::string& program,
                const std::string& work) {
  const std::string directory = work + "/" + request.directory;
  std::filesystem::create_directory(directory);
  Reading reading;
  for (const std::int64_t block : request.blocks) {
    makeFile(directory + "/" + fileName(reading.files.size()), block, request.bytes);
    const std::int64_t begin = drive.place('b', block * kBlock);
    reading.files.push_back({begin, begin + request.bytes});
  }
  reading.byName.resize(reading.files.size());
  std::iota(reading.byName.begin(), reading.byName.end(), 0);
  reading.tamrix = programOrder(program, directory, reading.files.size());
  std::filesystem::remove_all(directory);
  return reading;
}

void compare(const Drive& drive, const Request& request, const std::string& program,
             const std::string& work) {
  const auto& [files, byName, tamrixOrder] = prepare(drive, request, program, work);
  const Order best = tamrix::tape::estimatedBest(drive, files, tamrixOrder);

  const auto hours = [&](const Order& order) { return secondsOf(drive, files, order) / 3600; };
  std::printf("%-27s %6zu %7.0f %10.2f %8.2f %8.2f %8.2f %8.1f %8.1f\n", request.name, files.size(),
              static_cast<double>(request.bytes) * static_cast<double>(files.size()) / 1e9, hours(byName),
              hours(tamrixOrder), hours(best), readingSeconds(drive, files) / 3600,
              hours(byName) / hours(tamrixOrder), hours(tamrixOrder) / hours(best));
  std::fflush(stdout);
}

// Prints the head's movements, one after another.
class Head {
 public:
  explicit Head(const Drive& drive) : drive_(drive) {}

  void move(std::int64_t to, double seconds, const char* kind) {
    std::printf("%.3f %.3f %.3f %.3f %s\n", seconds_, drive_.metresFromBeginning(place_), seconds_ + seconds,
                drive_.metresFromBeginning(to), kind);
    seconds_ += seconds;
    place_ = to;
  }
  void read(const Stretch& file) {
    if (file.begin != place_) move(file.begin, drive_.locateSeconds(place_, file.begin), "wind");
    while (place_ < file.end) {  // a line for each wrap
      const double wrap = std::floor(static_cast<double>(place_) / drive_.bytesPerWrap()) + 1;
      const std::int64_t next =
          std::min(file.end, static_cast<std::int64_t>(std::ceil(wrap * drive_.bytesPerWrap())));
      move(next, drive_.streamSeconds(place_, next - place_), "read");
    }
  }

 private:
  const Drive& drive_;
  double seconds_ = 0;
  std::int64_t place_ = 0;
};

void printHead(const Generation& generation, const std::string& program, const std::string& work) {
  std::mt19937_64 random(kSeed);
  const Drive drive(generation);
  const auto third = static_cast<std::int64_t>(generation.capacity) / kBlock / 3;
  const Request request{"100 of 1 GB, other names", "head",
                        pick(100, 1000 * kMega, 1, Names::kOther, random, third), 1000 * kMega};
  const auto& [files, byName, tamrixOrder] = prepare(drive, request, program, work);
  for (const Order& order : {byName, tamrixOrder}) {
    Head head(drive);
    for (const int file : order) head.read(files[static_cast<std::size_t>(file)]);
    std::printf("\n\n");
  }
}

void compareAll(const Generation& generation, const std::string& program, const std::string& work) {
  const Drive drive(generation);
  const auto halfTheLength = static_cast<std::int64_t>(1.5 * drive.bytesPerWrap());
  std::printf("%s: %.0f MB/s, %.1f TB, %.0f m, %d wraps of %.1f GB; locate to half the length: %.0f s\n\n",
              generation.name, generation.bytesPerSecond / 1e6, generation.capacity / 1e12, generation.metres,
              generation.wraps, drive.bytesPerWrap() / 1e9, drive.locateSeconds(0, halfTheLength));
  std::printf("%-27s %6s %7s %10s %8s %8s %8s %8s %8s\n", "tape hours", "files", "GB", "directory", "tamrix",
              "best*", "reading", "dir/tam", "tam/best");
  for (const Request& request : makeRequests(generation, kSeed)) compare(drive, request, program, work);
  std::printf("\n* estimated: the best order found, not the best there is; never below \"reading\"\n");
}

}  // namespace

int main(int argc, char** argv) {
  const bool head = argc > 3 && std::string_view(argv[3]) == "head";
  const Generation* const generation =
      tamrix::tape::findGeneration(std::string("lto") + (argc > 3 && !head ? argv[3] : "9"));
  if (argc < 3 || argc > 4 || generation == nullptr) {
    std::fprintf(stderr, "usage: %s TAMRIX DIRECTORY [5|6|7|8|9|head]\n", argv[0]);
    return 2;
  }
  try {
    const std::string work = argv[2];
    if (!makeFile(work + "/probe", 0, 0)) return kNoAttributes;
    (head ? printHead : compareAll)(*generation, argv[1], work);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 2;
  }
}
