// How the files of a tape lie on it: gaps, sums and pieces of each partition.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace tamrix {

struct Extent;

// A number of blocks. Wide enough for any sum of sizes and start blocks: the latter come from attributes, in
// which anything may stand.
__extension__ using Blocks = __int128;

// The number, or the nearest one that fits.
std::int64_t clampedToInt64(Blocks number);

// Blocks without interruption that hold data.
struct DataRun {
  Blocks start;
  Blocks end;  // behind the last one
};

// One partition of one volume. Blocks before the first file count as a gap, too.
struct PartitionLayout {
  char letter = '?';
  std::int64_t files = 0;
  std::int64_t bytes = 0;
  std::int64_t gaps = 0;
  Blocks gapBlocks = 0;
  Blocks largestGap = 0;
  Blocks end = 0;                   // behind the last file
  std::int64_t outOfNameOrder = 0;  // files whose path sorts before the path of the one in front of them
  std::vector<DataRun> runs;        // in order, none touching another

  // Share of the blocks up to the end that hold no data, in percent, rounded down.
  int reclaimablePercent() const { return end == 0 ? 0 : static_cast<int>(100 * gapBlocks / end); }
};

// Purpose: collects the layout in one pass over a copy list. Costs at most a DataRun a file. Threads: one.
class TapeLayout {
 public:
  // Of one file.
  struct Place {
    bool isKnown = false;  // has a position on tape
    Blocks blocks = 0;
    Blocks gap = 0;  // free blocks in front of it, in its partition
  };

  explicit TapeLayout(std::int32_t blockSize) : blockSize_(blockSize) {}

  // Takes the next extent of the list, which is in tape order. Its file must outlive this.
  Place add(const Extent& extent);

  std::int32_t blockSize() const { return blockSize_; }
  const std::vector<PartitionLayout>& partitions() const { return partitions_; }
  std::int64_t filesWithoutPosition() const { return filesWithoutPosition_; }

 private:
  PartitionLayout& partitionOf(const Extent& extent);

  const std::int32_t blockSize_;  // bytes, above 0
  std::vector<PartitionLayout> partitions_;
  std::int64_t filesWithoutPosition_ = 0;
  const Extent* previous_ = nullptr;  // of the current partition
};

}  // namespace tamrix
