// tamrix beside what people use instead, on the same work, in turn, round by round in one run.
//
//     compare_bench TAMRIX MEMORY_DIRECTORY DISK_DIRECTORY [ROUNDS [SCALE [memory|disk|both [WORK]]]]
//
// For each kind of work, in memory and on disk, with and without attributes: every program copies it once a
// round, each copy is compared with its source in the first round, and medians and their ratios are printed,
// beside the limit of the machine and what tamrix's writer takes by itself, measured in the same rounds.
// SCALE divides the work's size.
//
// Ends with 0, or 1 when a copy failed or was not equal.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "bench/child_run.h"
#include "bench/compare_work.h"

namespace {

using tamrix::bench::ChildRun;
using tamrix::bench::Work;

constexpr double kMostCpuOverCp = 1.3;
// Memory: the default pool, the program itself, and 1 KiB a file.
constexpr double kPool = 400.0 * (1 << 20) + 16.0 * (1 << 20);
constexpr double kRecord = 1024;

struct Place {
  const char* name;
  std::string directory;
  bool inMemory;
};

// One program's way to copy `from` to `to`, as a shell command; $from and $to are set.
struct Peer {
  std::string name;
  std::string command;
  bool copiesAttributes = true;
};

struct Column {
  Peer peer;
  std::vector<double> wall;
  std::vector<double> cpu;
  std::vector<double> peak;
  std::int64_t blocks = 0;
};

std::vector<Peer> peersFor(const Work& work, const std::string& program, bool attributes) {
  // Holes of the size in which the work has data.
  const std::string mode = work.sparse ? " -sparse -buffer-size=64KB" : "";
  std::vector<Peer> peers = {
      {"tamrix",
       program +
           " -srcpath=$from -srcspec='*' -recursive -dstpath=$to -ignore-vendor-check -loglevel=URGENT" +
           mode},
      {"cp", std::string("cp -r --preserve=timestamps,xattr ") + (work.sparse ? "--sparse=always " : "") +
                 "$from/. $to"},
      {"rsync", std::string("rsync -rtX ") + (work.sparse ? "--sparse " : "--whole-file ") + "$from/ $to/"},
      {"tar+mbuffer",
       std::string("tar -C $from --xattrs ") + (work.sparse ? "--sparse " : "") +
           "-cf - . | mbuffer -q -m 64M | tar -C $to --xattrs --xattrs-include='user.*' -xf -"},
  };
  if (work.sizes.size() == 1 && !work.sparse && !attributes) {
    peers.push_back({"dd",
                     "mkdir $to/d0 && dd if=$from/d0/f0 of=$to/d0/f0 bs=128K status=none && touch -r "
                     "$from/d0/f0 $to/d0/f0",
                     false});
  }
  return peers;
}

// Where copies go, each to a directory of its own name. They are removed at once, but for those of many files
// on a disk: ext4 passes over each inode that was freed in the last minutes, and the next copy would pay for
// the removal of the last one. These stay until the whole run has ended.
class Copies {
 public:
  Copies(const Place& place, const Work& work)
      : root_(place.directory), kept_(!place.inMemory && work.sizes.size() >= kManyFiles) {}

  std::string next() const {
    static int made = 0;
    return root_ + "/" + std::to_string(++made);
  }
  void done(const std::string& directory) const {
    if (!kept_) std::filesystem::remove_all(directory);
  }

 private:
  static constexpr std::size_t kManyFiles = 2000;
  const std::string root_;
  const bool kept_;
};

// Copies once; returns false when the copy failed or, in the first round, is not equal.
bool copyOnce(Column& column, const Work& work, const std::string& from, const Copies& copies,
              bool attributes, bool check) {
  const std::string to = copies.next();
  std::filesystem::create_directory(to);
  sync();
  tamrix::bench::warmMemory(work);
  const ChildRun run = tamrix::bench::runChild(
      {"sh", "-c", "from=" + from + "; to=" + to + "; " + column.peer.command}, to + ".log");
  column.wall.push_back(run.wall);
  column.cpu.push_back(run.end.cpu);
  column.peak.push_back(run.end.peak);
  bool good = run.end.status == 0;
  if (check && good) {
    good = tamrix::bench::sameTrees(from, to, attributes && column.peer.copiesAttributes);
    column.blocks = tamrix::bench::blocksUsed(to);
  }
  if (!good)
    std::fprintf(stderr, "%s failed or its copy is not equal: %s\n", column.peer.name.c_str(),
                 run.text.c_str());
  copies.done(to);
  return good;
}

void tell(const char* what, double reached, double target, bool met) {
  std::printf("  %s %.2f, target %.2f: %s\n", what, reached, target, met ? "met" : "MISSED");
}

// Says which targets were reached; the first column is tamrix.
void judge(const Work& work, const Place& place, bool attributes, const std::vector<Column>& columns,
           double limit) {
  const Column& own = columns.front();
  const double wall = tamrix::bench::median(own.wall);
  for (const Column& column : columns) {
    const std::string& name = column.peer.name;
    if (name == own.peer.name) continue;
    const double overCp = place.inMemory ? work.overCpInMemory : work.overCp;
    const double target = name == "cp" ? overCp : name == "rsync" ? work.overRsync : work.overOthers;
    const double reached = tamrix::bench::median(column.wall) / wall;
    if (target > 0 && (attributes || !work.targetsWithAttributesOnly))
      tell(("speed over " + name + "'s").c_str(), reached, target, reached >= target);
    if (name != "cp") continue;
    const double cpu = tamrix::bench::median(own.cpu) / tamrix::bench::median(column.cpu);
    tell("processor time over cp's", cpu, kMostCpuOverCp, cpu <= kMostCpuOverCp);
    if (work.sparse && own.blocks > column.blocks) std::printf("  more blocks used than cp: MISSED\n");
  }
  if (place.inMemory && work.ofLimitInMemory > 0) {
    tell("of the limit", limit / wall, work.ofLimitInMemory, limit / wall >= work.ofLimitInMemory);
  }
  const double most = kPool + kRecord * static_cast<double>(work.sizes.size());
  const double peak = tamrix::bench::median(own.peak);
  tell("MiB of memory", peak / (1 << 20), most / (1 << 20), peak <= most);
}

double best(const std::vector<double>& figures) { return *std::min_element(figures.begin(), figures.end()); }

void print(const Work& work, const Place& place, bool attributes, const std::vector<Column>& columns,
           const std::vector<double>& limits, const std::vector<double>& writers) {
  const double limit = tamrix::bench::median(limits);
  std::printf("\n%s, %s, %s\n", work.name.c_str(), place.name,
              attributes ? "with attributes" : "without attributes");
  std::printf("  %-12s %9s %9s %9s %9s %9s %9s %9s %10s%s\n", "", "seconds", "x tamrix", "x limit", "cpu s",
              "cpu s/GiB", "best s", "its cpu", "peak MiB", work.sparse ? "    blocks" : "");
  const double gibibytes =
      static_cast<double>(std::accumulate(work.sizes.begin(), work.sizes.end(), std::int64_t{0})) / (1 << 30);
  const double own = tamrix::bench::median(columns.front().wall);
  for (const Column& column : columns) {
    const double wall = tamrix::bench::median(column.wall);
    const double cpu = tamrix::bench::median(column.cpu);
    std::printf("  %-12s %9.3f %9.2f %9.2f %9.3f %9.3f %9.3f %9.3f %10.1f", column.peer.name.c_str(), wall,
                wall / own, wall / limit, cpu, cpu / gibibytes, best(column.wall), best(column.cpu),
                tamrix::bench::median(column.peak) / (1 << 20));
    if (work.sparse) std::printf(" %9lld", static_cast<long long>(column.blocks));
    std::printf("\n");
  }
  for (const auto& [name, figures] : {std::pair("writer alone", &writers), {"limit", &limits}}) {
    const double seconds = tamrix::bench::median(*figures);
    std::printf("  %-12s %9.3f %9.2f %9.2f %9s %9s %9.3f\n", name, seconds, seconds / own, seconds / limit,
                "", "", best(*figures));
  }
  judge(work, place, attributes, columns, limit);
  std::fflush(stdout);
}

bool compare(const Work& work, const Place& place, bool attributes, const std::string& program, int rounds) {
  const Copies copies(place, work);
  const std::string from = copies.next();
  if (!tamrix::bench::makeWork(work, from, attributes)) {
    std::printf("\n%s, %s: no user attributes here, left out\n", work.name.c_str(), place.name);
    return true;
  }
  std::vector<Column> columns;
  for (const Peer& peer : peersFor(work, program, attributes)) columns.emplace_back().peer = peer;
  std::vector<double> limits;
  std::vector<double> writers;
  const std::size_t turns = columns.size() + 2;  // the last two are the limit's and the writer's
  for (int round = 0; round < rounds; ++round) {
    // Whoever comes first finds another machine than who comes last, so all change places.
    for (std::size_t i = 0; i < turns; ++i) {
      const std::size_t turn = (i + static_cast<std::size_t>(round)) % turns;
      if (turn < columns.size()) {
        if (!copyOnce(columns[turn], work, from, copies, attributes, round == 0)) return false;
        continue;
      }
      sync();
      tamrix::bench::warmMemory(work);
      const std::string to = copies.next();
      if (turn == columns.size()) {
        limits.push_back(tamrix::bench::limitSeconds(work, from, to));
      } else {
        writers.push_back(tamrix::bench::writerSeconds(work, to, attributes));
      }
      copies.done(to);
    }
  }
  copies.done(from);
  print(work, place, attributes, columns, limits, writers);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr,
                 "usage: compare_bench TAMRIX MEMORY_DIRECTORY DISK_DIRECTORY [ROUNDS [SCALE "
                 "[memory|disk|both [WORK]]]]\n");
    return 2;
  }
  const int rounds = argc > 4 ? std::atoi(argv[4]) : 5;
  const int scale = argc > 5 ? std::atoi(argv[5]) : 1;
  const std::string where = argc > 6 ? argv[6] : "";
  const std::string which = argc > 7 ? argv[7] : "";
  if (rounds < 1 || scale < 1) {
    std::fprintf(stderr, "compare_bench: ROUNDS and SCALE are 1 or more\n");
    return 2;
  }
  try {
    for (const Place& place : {Place{"in memory", argv[2], true}, Place{"on disk", argv[3], false}}) {
      if (where == (place.inMemory ? "disk" : "memory")) continue;
      for (const Work& work : tamrix::bench::allWork(scale)) {
        if (work.name.find(which) == std::string::npos) continue;
        for (const bool attributes : {true, false}) {
          if (work.scattered && !attributes) continue;  // without a position, no order
          if (!compare(work, place, attributes, argv[1], rounds)) return 1;
        }
      }
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "compare_bench: %s\n", error.what());
    return 1;
  }
  return 0;
}
