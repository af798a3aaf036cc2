// The result of an audit as a file of JSON lines; docs/auditing.md describes its fields.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "config/run_options.h"
#include "pipeline/run/json_lines.h"
#include "pipeline/run/tape_layout.h"
#include "reader/record/file_c.h"

namespace tamrix {

class CopyList;
struct Extent;

// Sums of an audit; its files by result are counted in a file audit only.
struct AuditSums {
  std::int64_t files = 0;
  std::int64_t bytes = 0;
  std::array<std::int64_t, kAuditResults> results{};

  std::int64_t count(AuditResult result) const { return results.at(static_cast<std::size_t>(result)); }
};

// Purpose: writes the report of an audit; see JsonLines. Threads: one. Operations return 0, or 1 after
// logging at kUrgent what can't be written.
class AuditReport {
 public:
  AuditReport(AuditMode mode, std::string path, std::string checksumAttribute);

  [[nodiscard]] int open(const CopyList& list) { return lines_.open(list); }
  // `place` is null where the volume's block size is not known.
  [[nodiscard]] int add(const Extent& extent, const TapeLayout::Place* place);
  // Writes the sums; the report is there when this returns 0. `layout` may be null.
  [[nodiscard]] int complete(const AuditSums& sums, const TapeLayout* layout);

 private:
  const AuditMode mode_;
  const std::string checksumAttribute_;
  JsonLines lines_;
};

}  // namespace tamrix
