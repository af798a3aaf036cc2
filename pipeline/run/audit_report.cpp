#include "pipeline/run/audit_report.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "log/logger.h"
#include "reader/record/extent.h"

namespace tamrix {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<const char*, kAuditResults> kResultWords = {"not_read", "pass", "fail", "not_possible"};

Json linesOf(const PartitionLayout& partition) {
  return {{"partition", escapedText(std::string(1, partition.letter))},
          {"files", partition.files},
          {"bytes", partition.bytes},
          {"blocks_to_end", clampedToInt64(partition.end)},
          {"gaps", partition.gaps},
          {"gap_blocks", clampedToInt64(partition.gapBlocks)},
          {"largest_gap", clampedToInt64(partition.largestGap)},
          {"reclaimable_percent", partition.reclaimablePercent()},
          {"out_of_name_order", partition.outOfNameOrder}};
}

}  // namespace

AuditReport::AuditReport(AuditMode mode, std::string path, std::string checksumAttribute)
    : mode_(mode), checksumAttribute_(std::move(checksumAttribute)), lines_(std::move(path)) {}

int AuditReport::add(const Extent& extent, const TapeLayout::Place* place) {
  const FileC& file = *extent.file;
  Json line = {{"path", file.srcPath.text()}, {"bytes", file.fileSize}};
  if (place == nullptr || place->isKnown) addPosition(line, extent);
  if (place != nullptr) {
    line["blocks"] = clampedToInt64(place->blocks);
    if (place->isKnown) line["gap_before"] = clampedToInt64(place->gap);
  }
  if (mode_ == AuditMode::kFiles) {
    line["result"] = kResultWords.at(static_cast<std::size_t>(file.auditResult));
    if (const auto stored = file.eaList.find(checksumAttribute_); stored != file.eaList.end()) {
      line["stored"] = (*stored).value == nullptr ? "" : std::string((*stored).value, (*stored).valueLength);
    }
    if (file.auditResult != AuditResult::kNotRead) line["computed"] = *file.checksum;
  }
  return lines_.write(line);
}

int AuditReport::complete(const AuditSums& sums, const TapeLayout* layout) {
  Json line = {
      {"sums", true}, {"status", logger->returnCode()}, {"files", sums.files}, {"bytes", sums.bytes}};
  if (mode_ == AuditMode::kFiles) {
    line["attribute"] = checksumAttribute_;
    for (std::size_t i = 0; i < kAuditResults; ++i) line[kResultWords.at(i)] = sums.results.at(i);
  }
  if (layout != nullptr) {
    line["block_size"] = layout->blockSize();
    line["without_position"] = layout->filesWithoutPosition();
    line["partitions"] = Json::array();
    for (const PartitionLayout& partition : layout->partitions()) {
      line["partitions"].push_back(linesOf(partition));
    }
  }
  return lines_.write(line) == 0 ? lines_.complete() : 1;
}

}  // namespace tamrix
