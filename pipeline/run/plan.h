// What a copy would do, how long the tape takes for it, and what of it is left to do. Nothing is copied.
#pragma once

#include <optional>
#include <string>

#include "config/run_options.h"
#include "pipeline/run/plan_files.h"
#include "pipeline/run/plan_report.h"
#include "pipeline/run/plan_room.h"
#include "pipeline/run/plan_volumes.h"
#include "pipeline/stage/globals.h"
#include "reader/list/copy_list.h"

namespace tamrix {

// Purpose: lists as a copy does, with the same messages, and walks the finished list twice: in tape order it
// decides what becomes of each file, writes batch files and report, and follows a drive; in directory
// order, which is that of the listing, or of the paths where a batch file gave another, it follows a second
// drive and adds up what the destinations need. Memory is the list's and 8 bytes a file. Threads: the main
// thread. Lifetime: one run.
class Plan {
 public:
  // `options` must outlive it.
  Plan(PipelineGlobals& globals, const RunOptions& options, PlanOptions planOptions);
  Plan(const Plan&) = delete;
  Plan& operator=(const Plan&) = delete;

  // To be called once. Returns 0 when the plan was made, whatever was found; otherwise 1, logged at kUrgent
  // but for an interrupt, and no file of it is there.
  [[nodiscard]] int run();

 private:
  [[nodiscard]] int make();
  [[nodiscard]] int checkOptions();
  [[nodiscard]] int list();
  [[nodiscard]] int spareDropped() const;
  [[nodiscard]] int walkInTapeOrder();
  [[nodiscard]] int walkInDirectoryOrder();
  // Decides what becomes of a file, and adds it to the batch files. Returns 0, or 1 when they can't be
  // written.
  [[nodiscard]] int judge(const Extent& extent);
  bool isPresent(const FileC& file);
  void tell() const;

  PipelineGlobals& globals_;
  const RunOptions& options_;
  const PlanOptions planOptions_;
  std::string checksumAttribute_;  // empty: not compared

  CopyList list_;
  std::optional<PlannedVolumes> volumes_;
  DestinationRooms rooms_;
  PlanFiles files_;
  std::optional<PlanReport> report_;
  PlanSums sums_;
};

}  // namespace tamrix
