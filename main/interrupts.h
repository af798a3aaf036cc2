// Interrupting a run: SIGINT, SIGTERM, SIGHUP.
#pragma once

#include "pipeline/stage/globals.h"

namespace tamrix {

// Purpose: while it lives, the first of the three signals is acknowledged by a log line and stops the
// pipeline in good order; the second ends the process at once, except for SIGHUP, which then changes nothing.
// A signal that the caller had ignored (nohup) stays ignored. Threads: made and destroyed on the main thread;
// one at a time. `globals` and the logger must outlive it.
class Interrupts {
 public:
  explicit Interrupts(PipelineGlobals& globals);
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

  // The number of the first signal that came, 0 when none did.
  static int received();
};

}  // namespace tamrix
