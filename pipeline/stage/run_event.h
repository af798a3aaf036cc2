// Waking the main thread while it waits for the stages.
#pragma once

#include <semaphore.h>

#include <chrono>
#include <ctime>

namespace tamrix {

// Purpose: tells one waiting thread that something has happened to the run: a stage has ended, or a stop was
// asked for. The waiter finds out for itself what it was; more posts than waits do no harm. Threads: post
// from any thread and any signal handler. Lifetime: outlives whoever posts.
class RunEvent {
 public:
  RunEvent() { sem_init(&happened_, 0, 0); }
  ~RunEvent() { sem_destroy(&happened_); }
  RunEvent(const RunEvent&) = delete;
  RunEvent& operator=(const RunEvent&) = delete;

  void post() { sem_post(&happened_); }

  // Waits for a post; a signal may end the wait, too.
  void wait() { sem_wait(&happened_); }

  // As wait, for `time` (below a second) at most.
  void waitFor(std::chrono::milliseconds time) {
    constexpr long kSecond = 1'000'000'000;
    struct timespec until {};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_nsec += std::chrono::nanoseconds(time).count();
    until.tv_sec += until.tv_nsec / kSecond;
    until.tv_nsec %= kSecond;
    sem_clockwait(&happened_, CLOCK_MONOTONIC, &until);
  }

 private:
  sem_t happened_{};
};

}  // namespace tamrix
