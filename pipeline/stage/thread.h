// One POSIX thread that runs an object; see pthreads(7).
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <string>

#include "pipeline/stage/run_event.h"

namespace tamrix {

// Purpose: the base of everything that runs on a thread of its own.
// Threads: start, isRunning, interrupt, send and join on the thread that owns the object; run on the new one.
// Lifetime: REQUIRES that a started thread is joined before the object is destroyed.
class Thread {
 public:
  // `name`: shown by debuggers and ps; the system keeps 15 characters.
  explicit Thread(std::string name) : name_(std::move(name)) {}
  virtual ~Thread() = default;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // What the thread does; the base does nothing.
  virtual void run() {}

  // Starts the thread, which posts `atEnd`, if any, when run has returned. It takes none of the user's
  // signals: those are the main thread's. Returns 0, or the error number when the system makes no thread.
  [[nodiscard]] int start(RunEvent* atEnd = nullptr);

  // Whether the thread was started and run has not returned yet.
  bool isRunning() const { return started_ && !ended_.load(std::memory_order_acquire); }

  // Interrupts the system call that the thread waits in, if the thread has marked it by MayWait: the call
  // returns early or with EINTR. Does nothing otherwise. To be called again until the thread has ended, as
  // the thread may just be entering the call.
  void interrupt();
  // How long to wait before the next try.
  static constexpr std::chrono::milliseconds kInterruptRound{10};

  // Sends the thread a signal that it waits for (it blocks all, see start).
  void send(int number) const {
    if (started_) pthread_kill(handle_, number);
  }

  // Waits until the thread has ended; does nothing when none was started.
  void join();

  // While it lives, the thread is in a system call that may take long and may be interrupted. No other call
  // is interrupted, so that a stop does not make a close or the setting of a lock fail.
  class MayWait {
   public:
    explicit MayWait(Thread& thread) : thread_(thread) { thread_.mayWait_.store(true); }
    ~MayWait() { thread_.mayWait_.store(false); }
    MayWait(const MayWait&) = delete;
    MayWait& operator=(const MayWait&) = delete;

   private:
    Thread& thread_;
  };

 private:
  static void* entry(void* self);

  const std::string name_;
  pthread_t handle_{};
  bool started_ = false;
  RunEvent* atEnd_ = nullptr;
  std::atomic<bool> ended_{false};
  std::atomic<bool> mayWait_{false};
};

}  // namespace tamrix
