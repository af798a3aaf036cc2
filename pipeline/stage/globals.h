// What the entry, the module manager, every stage and the ring share about one run.
#pragma once

#include <cstdint>

#include "pipeline/ring/stop_flag.h"
#include "pipeline/stage/page_cache.h"
#include "pipeline/stage/run_counters.h"
#include "pipeline/stage/run_event.h"

namespace tamrix {

// Made by the entry; shared by reference for the length of a run.
struct PipelineGlobals {
  StopFlag stopExecution;
  RunEvent event;  // posted by a stop and by the end of each stage; the module manager waits for it

  // Set by the module manager while it adds stages; constant once threads run.
  std::uint8_t hasProcessModule = 0;
  std::uint8_t sparseMode = 0;
  std::uint8_t hasWriter = 0;

  // To transfer; summed up by the copy list before threads run.
  std::int64_t totalBytes = 0;
  std::int64_t dataBytes = 0;  // of them; in sparse mode without the holes

  static constexpr std::int64_t kNotListed = -1;
  std::int64_t filesToCopy = kNotListed;  // set by the module manager when the listing is finished
  std::int64_t filesCopied = 0;           // counted by the writer stage; read after it was joined

  RunCounters counters;

  RunLength runLength() const { return PageCache::runLength(dataBytes); }

  // Tells every stage and the ring to end. Each failing path and the signal handler call it; calling it again
  // changes nothing. Stages see it when they next ask for a buffer; those that wait, in the ring or in a
  // system call, are woken by the module manager.
  void stopPipeline() {
    stopExecution.set_.store(1, std::memory_order_release);
    event.post();
  }
};

}  // namespace tamrix
