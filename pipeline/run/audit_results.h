// What an audit ends with, beside the lines that it logged meanwhile: the map of a tape, how many files
// passed, and the report.
#pragma once

#include <optional>

#include "config/run_options.h"
#include "pipeline/run/audit_report.h"
#include "pipeline/run/tape_layout.h"

namespace tamrix {

class CopyList;
class StopFlag;

// Threads: the main thread, while no stage runs. Lifetime: one run; options, list and flag outlive it.
class AuditResults {
 public:
  AuditResults(const RunOptions& options, AuditOptions auditOptions, const CopyList& list,
               const StopFlag& stop);

  // Makes ready for the report, before time is spent on the audit. Returns 0, or 1 after logging why not.
  [[nodiscard]] int prepare();
  // Counts, draws and reports. After a stop there is no report: it would be half of one.
  void finish();

 private:
  // One pass over the list. Returns 0, or 1 when the report failed.
  [[nodiscard]] int collect();
  void tellCounts() const;
  void drawMap() const;
  void drawBars() const;

  const RunOptions& options_;
  const AuditOptions auditOptions_;
  const CopyList& list_;
  const StopFlag& stop_;
  std::optional<AuditReport> report_;
  std::optional<TapeLayout> layout_;  // where the volume's block size is known
  AuditSums sums_;
};

}  // namespace tamrix
