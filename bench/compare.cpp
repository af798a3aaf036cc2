// tamrix beside what people use instead, on the same work, in turn, round by round in one run.
//
//     compare_bench TAMRIX TAPE_VOLUME MEMORY_DIRECTORY DISK_DIRECTORY [ROUNDS [SCALE [PLACE [WORK]]]]
//
// For each kind of work, in memory, on disk, and from the modelled tape volume into memory (PLACE restricts
// that to memory, disk or volume), with and without attributes: every program copies it once a round, each
// copy is compared with its source in the first round, and medians, ratios and how far those can be trusted
// are printed, beside the limit of the machine and what tamrix's writer takes by itself, measured in the same
// rounds. SCALE divides the work's size, WORK restricts to works whose names contain it.
//
// Ends with 0, or 1 when a copy failed or was not equal.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/child_run.h"
#include "bench/compare_table.h"
#include "bench/compare_work.h"
#include "bench/kept_memory.h"
#include "bench/mounted_volume.h"

namespace {

using tamrix::bench::ChildRun;
using tamrix::bench::Column;
using tamrix::bench::KeptMemory;
using tamrix::bench::Measured;
using tamrix::bench::MountedVolume;
using tamrix::bench::Peer;
using tamrix::bench::Place;
using tamrix::bench::Work;

struct Setup {
  std::string tamrix;  // the programs
  std::string volume;
  std::string memory;  // directories
  std::string disk;
  int rounds;
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
  Copies(Place place, std::string directory, const Work& work)
      : root_(std::move(directory)), kept_(place == Place::kDisk && work.sizes.size() >= kManyFiles) {}

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
bool copyOnce(Column& column, const std::string& from, const Copies& copies, KeptMemory& memory,
              bool attributes, bool check) {
  const std::string to = copies.next();
  std::filesystem::create_directory(to);
  sync();
  memory.give();
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
  memory.take();
  return good;
}

bool compare(const Work& work, Place place, bool attributes, const Setup& setup) {
  const bool mounts = place == Place::kVolume;
  const Copies copies(place, place == Place::kDisk ? setup.disk : setup.memory, work);
  std::string from = copies.next();
  // The volume shows a directory that is called so.
  if (mounts) std::filesystem::create_directory(from);
  if (!tamrix::bench::makeWork(work, mounts ? from + "/tape" : from, attributes && !mounts)) {
    std::printf("\n%s, %s: no user attributes here, left out\n", work.name.c_str(), nameOf(place));
    return true;
  }
  std::optional<MountedVolume> volume;
  const std::string made = from;
  if (mounts) {
    tamrix::bench::writeLayout(work, from + "/layout");
    volume.emplace(setup.volume, from, std::vector<std::string>{});
    if (!volume->isMounted()) {
      std::printf("\n%s: no volume can be mounted here, left out\n", work.name.c_str());
      return true;
    }
    from = volume->path();
  }
  Measured measured{work, place, attributes, {}, {}, {}};
  for (const Peer& peer : peersFor(work, setup.tamrix, attributes)) {
    measured.columns.emplace_back().peer = peer;
  }
  KeptMemory memory(tamrix::bench::memoryOf(work));
  const std::size_t turns = measured.columns.size() + 2;  // the last two are the limit's and the writer's
  for (int round = 0; round < setup.rounds; ++round) {
    // Whoever comes first finds another machine than who comes last, so all change places.
    for (std::size_t i = 0; i < turns; ++i) {
      const std::size_t turn = (i + static_cast<std::size_t>(round)) % turns;
      if (turn < measured.columns.size()) {
        if (!copyOnce(measured.columns[turn], from, copies, memory, attributes, round == 0)) return false;
        continue;
      }
      sync();
      memory.give();
      const std::string to = copies.next();
      if (turn == measured.columns.size()) {
        measured.limits.push_back(tamrix::bench::limitSeconds(work, from, to));
      } else {
        measured.writers.push_back(tamrix::bench::writerSeconds(work, to, attributes));
      }
      copies.done(to);
      memory.take();
    }
  }
  if (volume) (void)volume->finish();
  copies.done(made);
  print(measured);
  return true;
}

bool compareAll(const Setup& setup, int scale, const std::string& where, const std::string& which) {
  for (const auto& [place, name] :
       {std::pair(Place::kMemory, "memory"), {Place::kDisk, "disk"}, {Place::kVolume, "volume"}}) {
    if (where != "all" && where != name) continue;
    for (const Work& work : tamrix::bench::allWork(scale)) {
      if (work.name.find(which) == std::string::npos) continue;
      if (place == Place::kVolume && work.overAllFromVolume == 0) continue;
      for (const bool attributes : {true, false}) {
        // Without a position there is no order; and a volume's files always have theirs.
        if (!attributes && (work.scattered || place == Place::kVolume)) continue;
        if (!compare(work, place, attributes, setup)) return false;
      }
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const Setup setup = {argc > 1 ? argv[1] : "", argc > 2 ? argv[2] : "", argc > 3 ? argv[3] : "",
                       argc > 4 ? argv[4] : "", argc > 5 ? std::atoi(argv[5]) : 5};
  const int scale = argc > 6 ? std::atoi(argv[6]) : 1;
  const std::string where = argc > 7 ? argv[7] : "all";
  if (argc < 5 || setup.rounds < 1 || scale < 1) {
    std::fprintf(stderr,
                 "usage: compare_bench TAMRIX TAPE_VOLUME MEMORY_DIRECTORY DISK_DIRECTORY [ROUNDS [SCALE "
                 "[memory|disk|volume|all [WORK]]]]\n");
    return 2;
  }
  try {
    return compareAll(setup, scale, where, argc > 8 ? argv[8] : "") ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "compare_bench: %s\n", error.what());
    return 1;
  }
}
