// Showing a person how a run is going.
#pragma once

#include <atomic>
#include <chrono>
#include <csignal>

#include "pipeline/run/pace.h"
#include "pipeline/run/progress_text.h"
#include "pipeline/stage/globals.h"
#include "pipeline/stage/thread.h"

namespace tamrix {

// Purpose: while it lives, the counters of a run are looked at four times a second and shown as the last line
// of the terminal, if there is one and the level is INFO or WARNING. SIGUSR1 prints such a line at once,
// terminal or not. Where there is a last line, the process is suspended (SIGTSTP) and goes on without leaving
// it behind, and follows changes of the terminal's size (SIGWINCH). Threads: made and destroyed on the main
// thread, before others are started and after they have ended, as signals that it takes are blocked in all
// threads; it has one of its own, which is the only one to look at a clock for it. Without a thread there is
// no progress, and nothing else amiss. Lifetime: a run's; the globals and the logger outlive it.
class Progress : private Thread {
 public:
  explicit Progress(const PipelineGlobals& globals);
  ~Progress() override;

  // Keeps SIGUSR1 from ending a process that has no Progress yet. To be called first of all.
  static void expectRequests();

 private:
  void run() override;
  void takeSample(double now);
  void draw() const;
  void tell() const;
  void suspend();
  ProgressSnapshot snapshot() const;

  const RunCounters& counters_;
  const bool draws_;
  sigset_t signals_;        // that the thread takes
  sigset_t signalsBefore_;  // blocked in the main thread
  std::atomic<bool> ended_{false};

  // The thread's.
  Pace pace_;
  RunCounters::Phase phase_ = RunCounters::Phase::kStarting;  // at the last sample
};

// The log's words on what a run has moved, at its end, where a person watches. `source` and `destination` are
// the times for which the others waited for them.
void tellSummary(const RunCounters& counters, std::chrono::nanoseconds elapsed,
                 std::chrono::nanoseconds source, std::chrono::nanoseconds destination);

}  // namespace tamrix
