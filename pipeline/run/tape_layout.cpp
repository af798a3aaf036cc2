#include "pipeline/run/tape_layout.h"

#include <algorithm>
#include <limits>

#include "reader/record/extent.h"
#include "reader/record/file_c.h"

namespace tamrix {

std::int64_t clampedToInt64(Blocks number) {
  using Limits = std::numeric_limits<std::int64_t>;
  return static_cast<std::int64_t>(std::clamp<Blocks>(number, Limits::min(), Limits::max()));
}

TapeLayout::Place TapeLayout::add(const Extent& extent) {
  const std::int64_t size = extent.file->fileSize;
  Place place;
  place.blocks = Blocks{size / blockSize_} + (size % blockSize_ != 0 ? 1 : 0);
  if (extent.partition == '?' || extent.startBlock < 0) {
    ++filesWithoutPosition_;
    return place;
  }
  place.isKnown = true;
  PartitionLayout& partition = partitionOf(extent);
  ++partition.files;
  partition.bytes += size;
  if (previous_ == nullptr || previous_->startBlock != extent.startBlock) {  // not a link to the same data
    if (previous_ != nullptr && extent.file->srcPath < previous_->file->srcPath) ++partition.outOfNameOrder;
    previous_ = &extent;
  }
  if (place.blocks == 0) return place;

  const Blocks start = extent.startBlock;
  if (start > partition.end) {
    place.gap = start - partition.end;
    ++partition.gaps;
    partition.gapBlocks += place.gap;
    partition.largestGap = std::max(partition.largestGap, place.gap);
  }
  const Blocks end = start + place.blocks;
  if (partition.runs.empty() || start > partition.runs.back().end) {
    partition.runs.push_back({start, end});
  } else {
    partition.runs.back().end = std::max(partition.runs.back().end, end);
  }
  partition.end = std::max(partition.end, end);
  return place;
}

PartitionLayout& TapeLayout::partitionOf(const Extent& extent) {
  if (previous_ == nullptr || previous_->partition != extent.partition ||
      previous_->volumeUuid != extent.volumeUuid) {
    partitions_.emplace_back().letter = static_cast<char>(extent.partition);
    previous_ = nullptr;
  }
  return partitions_.back();
}

}  // namespace tamrix
