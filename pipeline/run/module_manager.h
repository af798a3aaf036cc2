// Turns the settled configuration into a pipeline, runs it and tears it down.
//
//   properties                                          pipeline
//   none of verify, checksum-update, audit              reader, writer
//   verify or checksum-update, checksum=NAME            reader, checksum, writer
//   sparse=enable, with any of these rows               a sparse stage before the writer's place
//   audit=files, checksum=NAME                          reader, checksum
//   audit=tape                                          none: the copy list, then the audit report
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "config/run_options.h"
#include "pipeline/stage/globals.h"
#include "pipeline/stage/module.h"
#include "reader/list/copy_list.h"
#include "reader/record/run_files.h"

namespace tamrix {

// Threads: the main thread only. Lifetime: one run; owns the stages and the ring.
class ModuleManager {
 public:
  ModuleManager() = default;
  ModuleManager(const ModuleManager&) = delete;
  ModuleManager& operator=(const ModuleManager&) = delete;

  // `globals` must outlive the manager.
  void setGlobals(PipelineGlobals* globals);

  // Adds a stage at the end of the pipeline and numbers it.
  void addModule(std::unique_ptr<Module> module);
  // Traced, nothing else. Returns 0.
  [[nodiscard]] int endModule();

  // Lists, builds, runs and joins; to be called once, after setGlobals. Returns 0 when the pipeline ran (the
  // log and the logger's return codes tell how its stages fared), or the code of what kept it from running.
  [[nodiscard]] int run();

 private:
  [[nodiscard]] int addChecksumStage();
  void addSparseStage();
  // For a run that writes, takes note of the files of the list. Returns 0, or 1 without the memory.
  [[nodiscard]] int noteFiles();
  void addWriter();
  [[nodiscard]] int runPipeline();
  [[nodiscard]] int auditTape();
  [[nodiscard]] int auditFiles();
  void beginCounting(const BufferQ& ring);
  void startModules(BufferQ& ring);

  PipelineGlobals* globals_ = nullptr;
  RunOptions options_;
  std::optional<CopyList> list_;                  // what the run copies; the stages use it
  std::optional<RunFiles> files_;                 // which files those are; only where they are written
  std::vector<std::unique_ptr<Module>> modules_;  // by module id
};

}  // namespace tamrix
