// The flag that ends a run.
#pragma once

#include <atomic>
#include <cstdint>

namespace tamrix {

// A flag that only ever goes from clear to set. Any thread and any signal handler may use it.
class StopFlag {
 public:
  bool isSet() const { return set_.load(std::memory_order_acquire) != 0; }

 private:
  friend struct PipelineGlobals;
  std::atomic<std::uint8_t> set_{0};
  static_assert(std::atomic<std::uint8_t>::is_always_lock_free);
};

}  // namespace tamrix
