// Waiting for the threads of a run, and the listing, which is one of them.
#pragma once

#include "pipeline/stage/globals.h"
#include "pipeline/stage/thread.h"

namespace tamrix {

class CopyList;

// Waits on the main thread until `thread`, which posts the globals' event at its end, has ended. While a stop
// is set, `breakOff` is to see to it, again and again, that nobody waits for anything: not in the ring, and
// not in a system call.
template <class BreakOff>
void waitForThread(PipelineGlobals& globals, const Thread& thread, BreakOff breakOff) {
  while (thread.isRunning()) {
    if (!globals.stopExecution.isSet()) {
      globals.event.wait();
      continue;
    }
    breakOff();
    globals.event.waitFor(Thread::kInterruptRound);
  }
}

// Builds the list on a thread of its own, so that a stop breaks off whatever it waits for. Returns the result
// of CopyList::getList.
[[nodiscard]] int listFiles(PipelineGlobals& globals, CopyList& list);

}  // namespace tamrix
