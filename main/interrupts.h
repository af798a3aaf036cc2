// Interrupting a run: SIGINT, SIGTERM, SIGHUP.
#pragma once

#include "pipeline/stage/globals.h"

namespace tamrix {

// Purpose: while it lives, the first of the three signals stops the pipeline in good order, and the second
// ends the process at once. A signal that the caller had ignored (nohup) stays ignored. Threads: made and
// destroyed on the main thread; one at a time. `globals` must outlive it.
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
