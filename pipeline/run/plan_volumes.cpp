#include "pipeline/run/plan_volumes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "log/logger.h"
#include "pipeline/run/audit.h"
#include "pipeline/run/progress_text.h"
#include "reader/record/extent.h"
#include "reader/record/file_c.h"

namespace tamrix {

namespace {

constexpr std::int32_t kUsualBlockSize = 524288;  // as LTFS formats a tape unless it is told otherwise

// A volume tells the size at its root, and may tell it at each file.
bool findBlockSizeAbove(std::string path, std::int32_t& blockSize) {
  while (!path.empty()) {
    if (findBlockSize(path, blockSize)) return true;
    const std::size_t slash = path.rfind('/');
    path.resize(slash == std::string::npos ? 0 : slash);
  }
  return false;
}

std::string percentText(double percent) {
  if (percent < 0.01) return "less than 0.01 %";
  std::array<char, 32> text{};
  (void)std::snprintf(text.data(), text.size(), "%.*f %%", percent < 1 ? 2 : percent < 10 ? 1 : 0, percent);
  return text.data();
}

}  // namespace

bool PlannedVolume::isScattered() const {
  constexpr std::int64_t kFewest = 10;  // below, no order saves much
  constexpr double kLittle = 0.75;
  const double locating = tapeOrder.seconds() - tapeOrder.readSeconds();
  const double inAnyOrder =
      static_cast<double>(tapeOrder.locates()) * tapeOrder.drive().averageLocateSeconds();
  return tapeOrder.locates() >= kFewest && locating > tapeOrder.readSeconds() &&
         locating > kLittle * inAnyOrder;
}

double PlannedVolume::wantedPercent() const {
  Blocks stretch = 0;
  for (const PlannedPartition& partition : partitions) stretch += partition.stretch() * blockSize;
  return stretch == 0 ? 0 : 100 * static_cast<double>(bytes) / static_cast<double>(stretch);
}

bool PlannedVolumes::hasPosition(const Extent& extent) {
  return extent.partition != Extent::kNoPartition && extent.startBlock >= 0;
}

void PlannedVolumes::addInTapeOrder(const Extent& extent) {
  const std::int64_t size = extent.byteCount;
  if (!hasPosition(extent)) {
    ++filesWithoutPosition_;
    bytesWithoutPosition_ += size;
    return;
  }
  const std::string_view uuid = extent.volumeUuid.data();
  if (volumes_.empty() || volumes_.back().uuid != uuid) {
    std::int32_t blockSize = 0;
    const bool isKnown = findBlockSizeAbove(extent.file->srcPath.text(), blockSize);
    byUuid_.emplace(uuid, volumes_.size());
    volumes_.emplace_back(std::string(uuid), generation_, isKnown ? blockSize : kUsualBlockSize);
    if (!isKnown) logger->log(kWarning, msg::kPlanBlockSizeAssumed, volumes_.back().name(), kUsualBlockSize);
  }
  PlannedVolume& volume = volumes_.back();
  const char letter = static_cast<char>(extent.partition);
  if (volume.partitions.empty() || volume.partitions.back().letter != letter) {
    volume.partitions.emplace_back().letter = letter;
  }
  PlannedPartition& partition = volume.partitions.back();
  for (std::int64_t* files : {&volume.files, &partition.files}) ++*files;
  for (Blocks* bytes : {&volume.bytes, &partition.bytes}) *bytes += size;
  if (size == 0) return;  // has no data on tape

  const Blocks start = extent.startBlock;
  if (partition.end == 0) {
    partition.first = start;
  } else if (start > partition.end) {
    ++partition.gaps;
    partition.gapBlocks += start - partition.end;
  }
  const Blocks blocks = size / volume.blockSize + (size % volume.blockSize != 0 ? 1 : 0);
  partition.end = std::max(partition.end, start + blocks);
  (void)volume.tapeOrder.locate(letter, extent.startBlock, extent.offset);
  (void)volume.tapeOrder.read(size);
}

void PlannedVolumes::addInDirectoryOrder(const Extent& extent) {
  if (!hasPosition(extent) || extent.byteCount == 0) return;
  const std::string_view uuid = extent.volumeUuid.data();
  if (volumes_[last_].uuid != uuid) last_ = byUuid_.find(uuid)->second;
  tape::DriveTime& time = volumes_[last_].directoryOrder;
  (void)time.locate(static_cast<char>(extent.partition), extent.startBlock, extent.offset);
  (void)time.read(extent.byteCount);
}

void PlannedVolumes::warn() const {
  const tape::Drive drive(generation_);
  for (const PlannedVolume& volume : volumes_) {
    for (const PlannedPartition& partition : volume.partitions) {
      const double end = static_cast<double>(drive.place(partition.letter, 0)) +
                         static_cast<double>(partition.end) * volume.blockSize;
      if (end > generation_.capacity) {
        logger->log(kWarning, msg::kPlanBehindEnd, volume.name(), generation_.name);
      }
    }
    if (volume.isScattered()) {
      logger->log(kWarning, msg::kPlanScattered, volume.name(), percentText(volume.wantedPercent()));
    }
  }
}

void PlannedVolumes::tell() const {
  for (const PlannedVolume& volume : volumes_) tell(volume);
  if (volumes_.size() > 1) tellSums();
  if (filesWithoutPosition_ != 0) {
    logger->output(msg::kPlanWithoutPosition, filesWithoutPosition_, sizeText(bytesWithoutPosition_));
  }
}

void PlannedVolumes::tellSums() const {
  double sum = 0;
  double longest = 0;
  for (const PlannedVolume& volume : volumes_) {
    const double seconds = volume.tapeOrder.seconds() + volume.tapeOrder.rewindSeconds();
    sum += seconds;
    longest = std::max(longest, seconds);
  }
  logger->output(msg::kPlanAllVolumes, hoursText(sum), hoursText(longest));
}

void PlannedVolumes::tell(const PlannedVolume& volume) const {
  logger->output(msg::kPlanVolume, volume.name(), volume.files, sizeText(volume.bytes));
  for (const PlannedPartition& partition : volume.partitions) {
    logger->output(msg::kPlanPartition, partition.letter, partition.files, sizeText(partition.bytes),
                   clampedToInt64(partition.first), clampedToInt64(partition.last()),
                   sizeText(partition.stretch() * volume.blockSize), partition.gaps,
                   sizeText(partition.gapBlocks * volume.blockSize));
  }
  logger->output(msg::kPlanDriveTime, generation_.name, hoursText(volume.tapeOrder.seconds()),
                 hoursText(volume.directoryOrder.seconds()), hoursText(volume.tapeOrder.readSeconds()),
                 hoursText(volume.tapeOrder.rewindSeconds()));
}

std::string sizeText(Blocks bytes) { return bytesText(static_cast<double>(bytes)); }

std::string hoursText(double seconds) {
  constexpr long long kMinute = 60;
  constexpr long long kHour = 60 * kMinute;
  const long long whole = std::llround(seconds);
  std::array<char, 64> text{};
  if (whole < kMinute) {
    (void)std::snprintf(text.data(), text.size(), "%lld s", whole);
  } else if (whole < kHour) {
    (void)std::snprintf(text.data(), text.size(), "%lld min %02lld s", whole / kMinute, whole % kMinute);
  } else {
    (void)std::snprintf(text.data(), text.size(), "%lld h %02lld min", whole / kHour,
                        whole % kHour / kMinute);
  }
  return text.data();
}

}  // namespace tamrix
