// The names of the next sources, looked up before they are opened.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "log/mutex.h"
#include "pipeline/ring/stop_flag.h"
#include "pipeline/ring/thread_usage.h"
#include "pipeline/stage/helper_threads.h"
#include "reader/record/extent.h"

namespace tamrix {

// Purpose: on a volume that a process serves (FUSE), or on a network, the system has to ask for a name before
// it can open the file, and the reader waits for both answers. For small files that is most of its time. So a
// helper thread looks up the names of the files that come next (stat(2)); the system keeps the answers for
// about a second, and to open such a file it has to ask once only. What the helper learns is not used, and no
// file is opened before its turn.
//
// Where opening does not wait, as in memory, the helper is never started: only an opening that took long, and
// in which the reader slept for more than half of the time, does that. As with PairProbes, the time that the
// reader was ready to run does not count as sleep.
//
// Threads: constructor and destructor on one thread, while no stage runs; Opening on the reader's; help on
// the helper. Lifetime: the reader stage's; the extents, their files and the stop flag outlive it.
class SourceLookups {
 public:
  static constexpr std::size_t kFilesAhead = 32;

  // Asks the system for a path, and forgets the answer.
  using Lookup = std::function<void(const std::string& path)>;
  static void lookUp(const std::string& path);

  SourceLookups(const std::vector<Extent*>& extents, const StopFlag& stop, Lookup lookup = lookUp);
  ~SourceLookups();
  SourceLookups(const SourceLookups&) = delete;
  SourceLookups& operator=(const SourceLookups&) = delete;

  // To be kept while the source of extent `position` is opened; positions only grow. Throws std::bad_alloc.
  class Opening {
   public:
    Opening(SourceLookups& lookups, std::size_t position) : lookups_(lookups) { lookups_.begin(position); }
    ~Opening() { lookups_.end(); }
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;

   private:
    SourceLookups& lookups_;
  };

  // Whether the helper was started; on the reader's thread.
  bool isHelped() const { return state_ == State::kHelped; }

 private:
  enum class State { kMeasuring, kHelped, kAlone };

  void begin(std::size_t position);
  void end();
  // When half of what was offered is behind `position`, offers more.
  void offerAfter(std::size_t position) TAMRIX_EXCLUDES(mutex_);
  // Until the end: looks up what is offered.
  void help() TAMRIX_EXCLUDES(mutex_);

  const std::vector<Extent*>& extents_;
  const Lookup lookup_;

  // The reader's.
  HelperThreads helper_;
  State state_ = State::kMeasuring;
  std::chrono::steady_clock::time_point begun_;
  bool isSlow_ = false;                // the last opening took long
  std::optional<ThreadUsage> before_;  // the current one, if the last took long

  Mutex mutex_;
  CondVar changed_;                                    // one of the following
  std::size_t offered_ TAMRIX_GUARDED_BY(mutex_) = 0;  // extents before this one are, or were, offered
  std::size_t next_ TAMRIX_GUARDED_BY(mutex_) = 0;     // the first that was not looked up
  bool ended_ TAMRIX_GUARDED_BY(mutex_) = false;       // the helper is to end
};

}  // namespace tamrix
