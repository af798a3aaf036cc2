#include "pipeline/run/plan_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "pipeline/run/plan_room.h"
#include "pipeline/run/plan_volumes.h"
#include "reader/record/extent.h"

namespace tamrix {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<const char*, kPlanResults> kResultWords = {"copy", "overwrite", "present", "left_out"};

Json linesOf(const PlannedPartition& partition) {
  return {{"partition", escapedText(std::string(1, partition.letter))},
          {"files", partition.files},
          {"bytes", clampedToInt64(partition.bytes)},
          {"first_block", clampedToInt64(partition.first)},
          {"last_block", clampedToInt64(partition.last())},
          {"gaps", partition.gaps},
          {"gap_blocks", clampedToInt64(partition.gapBlocks)}};
}

Json linesOf(const PlannedVolume& volume) {
  Json line = {{"volume", volume.uuid},
               {"files", volume.files},
               {"bytes", clampedToInt64(volume.bytes)},
               {"block_size", volume.blockSize},
               {"tape_order_seconds", volume.tapeOrder.seconds()},
               {"directory_order_seconds", volume.directoryOrder.seconds()},
               {"reading_seconds", volume.tapeOrder.readSeconds()},
               {"rewind_seconds", volume.tapeOrder.rewindSeconds()},
               {"locates", volume.tapeOrder.locates()},
               {"wanted_percent", volume.wantedPercent()},
               {"scattered", volume.isScattered()}};
  line["partitions"] = Json::array();
  for (const PlannedPartition& partition : volume.partitions)
    line["partitions"].push_back(linesOf(partition));
  return line;
}

Json linesOf(const DestinationRoom& room) {
  Json line = {{"path", room.path},
               {"bytes_needed", clampedToInt64(std::max<Blocks>(room.neededBytes, 0))},
               {"bytes_free", clampedToInt64(room.freeBytes)},
               {"inodes_needed", room.neededInodes}};
  if (room.countsInodes) line["inodes_free"] = room.freeInodes;
  return line;
}

}  // namespace

int PlanReport::add(const Extent& extent) {
  const FileC& file = *extent.file;
  Json line = {{"path", file.srcPath.text()}, {"destination", file.dstPath.text()}, {"bytes", file.fileSize}};
  if (extent.partition != Extent::kNoPartition) line["volume"] = std::string(extent.volumeUuid.data());
  addPosition(line, extent);
  line["result"] = kResultWords.at(static_cast<std::size_t>(file.planResult));
  return lines_.write(line);
}

int PlanReport::complete(const PlanSums& sums, const PlannedVolumes& volumes, const DestinationRooms& rooms) {
  Json line = {{"sums", true}, {"files", sums.toCopy()}, {"bytes", clampedToInt64(sums.bytes)}};
  for (std::size_t i = 0; i < kPlanResults; ++i) line[kResultWords.at(i)] = sums.results.at(i);
  line["drive"] = std::string(volumes.generation().option);
  line["without_position"] = volumes.filesWithoutPosition();
  line["volumes"] = Json::array();
  for (const PlannedVolume& volume : volumes.all()) line["volumes"].push_back(linesOf(volume));
  line["destinations"] = Json::array();
  for (const DestinationRoom& room : rooms.all()) line["destinations"].push_back(linesOf(room));
  return lines_.write(line) == 0 ? lines_.complete() : 1;
}

}  // namespace tamrix
