// What an audit ends with, beside the lines that it logged meanwhile: the map of a tape, how many files
// passed, and the report.
#pragma once

#include <optional>

#include "config/run_options.h"
#include "pipeline/run/audit_report.h"
#include "pipeline/run/tape_layout.h"

namespace tamrix {

class CopyList;

// Threads: the main thread, while no stage runs. Lifetime: one run; options and list outlive it.
class AuditResults {
 public:
  AuditResults(const RunOptions& options, AuditOptions auditOptions, const CopyList& list);

  // Makes ready for the report, before time is spent on the audit. Returns 0, or 1 after logging why not.
  [[nodiscard]] int prepare();
  // Counts, draws and reports. Without `isWhole` the audit was stopped, and its report would be half of one.
  void finish(bool isWhole);

 private:
  // One pass over the list. Returns 0, or 1 when the report failed.
  [[nodiscard]] int collect(bool isWhole);
  void tellCounts() const;
  void drawMap() const;

  const RunOptions& options_;
  void drawBars() const;
  const AuditOptions auditOptions_;
  const CopyList& list_;
  std::optional<AuditReport> report_;
  std::optional<TapeLayout> layout_;  // where the volume's block size is known
  AuditSums sums_;
};

}  // namespace tamrix
