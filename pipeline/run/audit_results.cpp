#include "pipeline/run/audit_results.h"

#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>

#include "log/logger.h"
#include "pipeline/ring/stop_flag.h"
#include "pipeline/run/audit.h"
#include "pipeline/run/volume_map.h"
#include "reader/list/copy_list.h"

namespace tamrix {

namespace {

constexpr int kUsualWidth = 80;
constexpr int kNarrowest = 20;
constexpr int kWidest = 1000;
constexpr int kBeforeBar = 2;  // the partition's letter and a blank

int terminalWidth() {
  int width = 0;
  if (const char* const columns = std::getenv("COLUMNS")) width = std::atoi(columns);
  if (winsize size{}; width <= 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) width = size.ws_col;
  return width <= 0 ? kUsualWidth : std::clamp(width, kNarrowest, kWidest);
}

// The letter comes from an attribute, in which anything may stand.
char shownLetter(const PartitionLayout& partition) {
  return partition.letter > ' ' && partition.letter < 0x7F ? partition.letter : '?';
}

}  // namespace

AuditResults::AuditResults(const RunOptions& options, AuditOptions auditOptions, const CopyList& list,
                           const StopFlag& stop)
    : options_(options), auditOptions_(std::move(auditOptions)), list_(list), stop_(stop) {}

int AuditResults::prepare() {
  if (auditOptions_.report.empty()) return 0;
  report_.emplace(options_.audit, auditOptions_.report, options_.checksumAttribute);
  return report_->open(list_);
}

void AuditResults::finish() {
  if (std::int32_t blockSize = 0; findBlockSize(options_.srcpath, blockSize)) layout_.emplace(blockSize);
  const int collected = collect();
  if (options_.audit == AuditMode::kFiles) tellCounts();
  if (options_.audit == AuditMode::kTape && layout_ &&
      (auditOptions_.map == MapMode::kOn ||
       (auditOptions_.map == MapMode::kAuto && isatty(STDOUT_FILENO) != 0))) {
    drawMap();
  }
  if (report_ && collected == 0 && !stop_.isSet())
    (void)report_->complete(sums_, layout_ ? &*layout_ : nullptr);
}

int AuditResults::collect() {
  int result = 0;
  for (const Extent* extent : list_.extents()) {
    const FileC& file = *extent->file;
    ++sums_.files;
    sums_.bytes += file.fileSize;
    ++sums_.results.at(static_cast<std::size_t>(file.auditResult));
    TapeLayout::Place place;
    if (layout_) place = layout_->add(*extent);
    if (report_ && result == 0 && !stop_.isSet()) result = report_->add(*extent, layout_ ? &place : nullptr);
  }
  return result;
}

void AuditResults::tellCounts() const {
  logger->output(msg::kManagerAuditCounts, sums_.count(AuditResult::kPass), sums_.count(AuditResult::kFail),
                 sums_.count(AuditResult::kNotPossible), sums_.count(AuditResult::kNotRead));
  const std::int64_t without = sums_.count(AuditResult::kNotPossible);
  if (auditOptions_.requireChecksum && without != 0) {
    logger->log(kUrgent, msg::kManagerChecksumRequired, without, options_.checksumAttribute);
  }
}

void AuditResults::drawMap() const {
  if (!layout_->partitions().empty()) drawBars();
  for (const PartitionLayout& partition : layout_->partitions()) {
    logger->output(msg::kManagerMapFiles, shownLetter(partition), partition.files, gigabytes(partition.bytes),
                   partition.outOfNameOrder);
    logger->output(msg::kManagerMapGaps, partition.gaps,
                   gigabytes(partition.gapBlocks * layout_->blockSize()),
                   gigabytes(partition.largestGap * layout_->blockSize()), partition.reclaimablePercent());
  }
  if (layout_->filesWithoutPosition() != 0) {
    logger->output(msg::kManagerMapWithoutPosition, layout_->filesWithoutPosition());
  }
}

void AuditResults::drawBars() const {
  struct statvfs volume {};
  std::uint64_t freeBytes = 0;
  if (statvfs(options_.srcpath.c_str(), &volume) == 0) freeBytes = volume.f_bfree * volume.f_frsize;
  const MapCharacters characters =
      logger->console().takesUtf8() ? MapCharacters::kUnicode : MapCharacters::kAscii;
  const VolumeMap map = drawVolume(*layout_, freeBytes, terminalWidth() - kBeforeBar, characters);
  for (std::size_t i = 0; i < map.bars.size(); ++i) {
    logger->output(msg::kManagerMapBar, shownLetter(layout_->partitions()[i]), map.bars[i]);
  }
  logger->output(msg::kManagerMapScale, map.scale);
  const MapCells& cells = mapCells(characters);
  logger->output(msg::kManagerMapLegend, cells.data, cells.mixed, cells.gap, cells.free,
                 gigabytes(freeBytes));
}

}  // namespace tamrix
