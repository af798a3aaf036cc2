// Threads that do part of another thread's work.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pipeline/ring/stop_flag.h"
#include "pipeline/stage/run_event.h"

namespace tamrix {

// Purpose: keeps threads that all run one function, as many as turn out to be of use, and waits for their
// end. Threads: all of it on the owner's; the function on the new ones. Lifetime: the owner's; the stop flag
// outlives it. REQUIRES: join was called before the end.
class HelperThreads {
 public:
  // `name`: as Thread's. `work`: what each thread does. All of its system calls may be interrupted by a stop.
  HelperThreads(std::string name, const StopFlag& stop, std::function<void()> work);
  ~HelperThreads();
  HelperThreads(const HelperThreads&) = delete;
  HelperThreads& operator=(const HelperThreads&) = delete;

  std::size_t size() const { return threads_.size(); }

  // Starts one more. Returns false when the system makes no thread. Throws std::bad_alloc.
  bool add();

  // Interrupts the system calls that they wait in; see Thread::interrupt.
  void interrupt();

  // Waits until all have ended, and after a stop interrupts them until they have. REQUIRES: the function
  // returns, or will be told to by a stop.
  void join();

 private:
  class Helper;

  const std::string name_;
  const StopFlag& stop_;
  const std::function<void()> work_;
  std::vector<std::unique_ptr<Helper>> threads_;
  RunEvent ended_;
};

}  // namespace tamrix
