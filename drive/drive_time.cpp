#include "drive/drive_time.h"

#include <algorithm>

namespace tamrix::tape {

namespace {

// An exabyte: sums of two such figures and the partitions' wraps fit.
constexpr std::int64_t kFarthest = std::int64_t{1} << 60;

std::int64_t cut(std::int64_t bytes) { return std::clamp<std::int64_t>(bytes, 0, kFarthest); }

}  // namespace

std::int64_t DriveTime::bytesTo(std::int64_t block, std::int64_t offset) const {
  std::int64_t bytes = 0;
  if (__builtin_mul_overflow(cut(block), blockSize_, &bytes)) return kFarthest;
  return cut(cut(bytes) + cut(offset));
}

bool DriveTime::isAt(char partition, std::int64_t block, std::int64_t offset) const {
  return partition == partition_ && bytesTo(block, offset) == offset_;
}

std::optional<double> DriveTime::locate(char partition, std::int64_t block, std::int64_t offset) {
  const std::int64_t to = bytesTo(block, offset);
  const std::int64_t behindBlock = (offset_ + blockSize_ - 1) / blockSize_ * blockSize_;
  const bool readsOn = partition == partition_ && (to == offset_ || (offset == 0 && to == behindBlock));
  const std::int64_t from = place();
  partition_ = partition;
  offset_ = to;
  if (readsOn) return std::nullopt;
  const double seconds = drive_.locateSeconds(from, place());
  locateSeconds_ += seconds;
  ++locates_;
  return seconds;
}

double DriveTime::read(std::int64_t count) {
  const double seconds = drive_.streamSeconds(place(), cut(count));
  readSeconds_ += seconds;
  offset_ = cut(offset_ + cut(count));
  return seconds;
}

}  // namespace tamrix::tape
