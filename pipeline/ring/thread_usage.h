// How a thread spends its time.
#pragma once

#include <chrono>

namespace tamrix {

// Only differences mean something: the figures begin anywhere.
struct ThreadUsage {
  std::chrono::nanoseconds clock{};      // time that went by
  std::chrono::nanoseconds processor{};  // of it, on a processor
  std::chrono::nanoseconds queued{};     // of it, ready to run, but another thread had the processor

  // Of the calling thread. Takes some microseconds. Where the system doesn't tell, `queued` stays 0; see
  // clock_gettime(2) and, for /proc/thread-self/schedstat, the kernel's documentation, "Scheduler
  // Statistics".
  static ThreadUsage now();

  ThreadUsage operator-(const ThreadUsage& other) const {
    return {clock - other.clock, processor - other.processor, queued - other.queued};
  }

  // The time that is left: the thread waited for something, a device for example.
  std::chrono::nanoseconds asleep() const { return clock - processor - queued; }
};

}  // namespace tamrix
