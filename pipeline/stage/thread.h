// One POSIX thread that runs an object; see pthreads(7).
#pragma once

#include <pthread.h>

#include <string>

namespace tamrix {

// Purpose: the base of everything that runs on a thread of its own.
// Threads: start and join on the thread that owns the object; run on the new one.
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

  // Starts the thread. It takes no interrupts: those are the main thread's. Returns 0, or the error number
  // when the system makes no thread.
  [[nodiscard]] int start();

  // Waits until the thread has ended; does nothing when none was started.
  void join();

 private:
  static void* entry(void* self);

  const std::string name_;
  pthread_t handle_{};
  bool started_ = false;
};

}  // namespace tamrix
