// How a thread spends its time.
#pragma once

#include <chrono>
#include <cstdint>

namespace tamrix {

// Only differences mean something: the figures begin anywhere.
struct ThreadUsage {
  std::chrono::nanoseconds clock{};      // time that went by
  std::chrono::nanoseconds processor{};  // of it, on a processor
  std::chrono::nanoseconds queued{};     // of it, ready to run, but another thread had the processor
  std::int64_t sleeps = 0;               // how often it gave the processor up to wait for something

  // Of the calling thread. Takes some microseconds. Where the system doesn't tell, `queued` stays 0; see
  // clock_gettime(2), getrusage(2) and, for /proc/thread-self/schedstat, the kernel's documentation,
  // "Scheduler Statistics".
  static ThreadUsage now();

  ThreadUsage operator-(const ThreadUsage& other) const {
    return {clock - other.clock, processor - other.processor, queued - other.queued, sleeps - other.sleeps};
  }

  // The time that is left: the thread waited for something, a device for example. Where it never did, a host
  // has taken the processor from this machine.
  std::chrono::nanoseconds asleep() const {
    return sleeps > 0 ? clock - processor - queued : std::chrono::nanoseconds(0);
  }
  bool isMostlyAsleep() const { return asleep() * 2 > clock; }
};

}  // namespace tamrix
