// The result of an audit as a file of JSON lines; docs/auditing.md describes its fields.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "config/run_options.h"
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

// Purpose: writes the report under a temporary name beside its own, which it gets when it is complete;
// without that, nothing of it stays. Memory does not grow with the report. Threads: one. Operations return 0,
// or 1 after logging at kUrgent what can't be written.
class AuditReport {
 public:
  AuditReport(AuditMode mode, std::string path, std::string checksumAttribute);
  // Removes what is not complete.
  ~AuditReport();
  AuditReport(const AuditReport&) = delete;
  AuditReport& operator=(const AuditReport&) = delete;

  // Makes the temporary file. A path where something other than a file is, or a file of `list`, is refused.
  [[nodiscard]] int open(const CopyList& list);
  // `place` is null where the volume's block size is not known.
  [[nodiscard]] int add(const Extent& extent, const TapeLayout::Place* place);
  // Writes the sums; the report is there when this returns 0. `layout` may be null.
  [[nodiscard]] int complete(const AuditSums& sums, const TapeLayout* layout);

 private:
  template <class Line>
  [[nodiscard]] int writeLine(const Line& line);
  [[nodiscard]] int fail(int error);

  const AuditMode mode_;
  const std::string path_;
  const std::string checksumAttribute_;
  std::string temporary_;  // empty: there is none
  std::FILE* file_ = nullptr;
};

}  // namespace tamrix
