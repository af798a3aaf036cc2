// A plan as a file of JSON lines; docs/planning.md describes its fields.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "pipeline/run/json_lines.h"
#include "pipeline/run/tape_layout.h"
#include "reader/record/file_c.h"

namespace tamrix {

class CopyList;
class DestinationRooms;
class PlannedVolumes;
struct Extent;

// Sums of a plan.
struct PlanSums {
  std::array<std::int64_t, kPlanResults> results{};  // files by result
  Blocks bytes = 0;                                  // to copy
  std::int64_t withoutChecksum = 0;                  // files that can't be compared by it

  std::int64_t count(PlanResult result) const { return results.at(static_cast<std::size_t>(result)); }
  std::int64_t toCopy() const { return count(PlanResult::kCopy) + count(PlanResult::kOverwrite); }
};

// Purpose: writes the report; see JsonLines. Threads: one. Operations return 0, or 1 after logging at kUrgent
// what can't be written.
class PlanReport {
 public:
  explicit PlanReport(std::string path) : lines_(std::move(path)) {}

  [[nodiscard]] int open(const CopyList& list) { return lines_.open(list); }
  [[nodiscard]] int add(const Extent& extent);
  // Writes the sums; the report is there when this returns 0.
  [[nodiscard]] int complete(const PlanSums& sums, const PlannedVolumes& volumes,
                             const DestinationRooms& rooms);

 private:
  JsonLines lines_;
};

}  // namespace tamrix
