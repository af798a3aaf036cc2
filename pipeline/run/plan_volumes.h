// Where the files of a plan lie on their volumes, and how long a drive takes for them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "drive/drive_time.h"
#include "pipeline/run/tape_layout.h"

namespace tamrix {

struct Extent;

// One partition of one volume. Blocks before the first file count for nothing.
struct PlannedPartition {
  char letter = '?';
  std::int64_t files = 0;
  Blocks bytes = 0;
  Blocks first = 0;  // block with data
  Blocks end = 0;    // behind the last one
  std::int64_t gaps = 0;
  Blocks gapBlocks = 0;

  Blocks stretch() const { return end - first; }
  Blocks last() const { return end > first ? end - 1 : first; }
};

struct PlannedVolume {
  PlannedVolume(std::string volumeUuid, const tape::Generation& generation, std::int32_t bytesPerBlock)
      : uuid(std::move(volumeUuid)),
        blockSize(bytesPerBlock),
        tapeOrder(generation, bytesPerBlock),
        directoryOrder(generation, bytesPerBlock) {}

  // Whether locates take most of the time, and each about as long as in any order.
  bool isScattered() const;
  std::string name() const { return uuid.empty() ? "(no UUID)" : uuid; }
  // What is wanted of the tape between the first and the last file of each partition, in percent.
  double wantedPercent() const;

  std::string uuid;
  std::int32_t blockSize;
  std::int64_t files = 0;
  Blocks bytes = 0;
  std::vector<PlannedPartition> partitions;
  tape::DriveTime tapeOrder;
  tape::DriveTime directoryOrder;
};

// Purpose: collects the figures in two passes over a copy list, one in each order. Memory grows with the
// volumes, not with the files. Threads: one. Lifetime: any; the generation and the list outlive it.
class PlannedVolumes {
 public:
  explicit PlannedVolumes(const tape::Generation& generation) : generation_(generation) {}

  // Takes the next file of the copy list, which is in tape order. Warns, once for a volume, when its block
  // size is not known.
  void addInTapeOrder(const Extent& extent);
  // Takes the next file in another order. REQUIRES: all have been added in tape order.
  void addInDirectoryOrder(const Extent& extent);

  // Warns of what makes the figures wrong, or tape order useless.
  void warn() const;
  // Prints the figures.
  void tell() const;

  const tape::Generation& generation() const { return generation_; }
  const std::vector<PlannedVolume>& all() const { return volumes_; }
  std::int64_t filesWithoutPosition() const { return filesWithoutPosition_; }

 private:
  static bool hasPosition(const Extent& extent);
  void tell(const PlannedVolume& volume) const;
  void tellSums() const;

  const tape::Generation& generation_;
  std::vector<PlannedVolume> volumes_;
  std::map<std::string, std::size_t, std::less<>> byUuid_;  // places in volumes_
  std::size_t last_ = 0;                                    // the place that was looked up last
  std::int64_t filesWithoutPosition_ = 0;
  Blocks bytesWithoutPosition_ = 0;
};

// A time as a person reads it: "42 s", "7 min 05 s", "31 h 12 min".
std::string hoursText(double seconds);

// A size as a person reads it: "1.23 GB".
std::string sizeText(Blocks bytes);

}  // namespace tamrix
