// A mutex and a condition variable that Clang's thread-safety analysis understands.
//
// Members name the mutex that guards them with TAMRIX_GUARDED_BY; the "clang" preset turns an access
// without it into an error. With other compilers the annotations vanish. See Clang's documentation,
// "Thread Safety Analysis".
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define TAMRIX_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define TAMRIX_THREAD_ATTRIBUTE(x)
#endif

#define TAMRIX_CAPABILITY(name) TAMRIX_THREAD_ATTRIBUTE(capability(name))
#define TAMRIX_SCOPED_CAPABILITY TAMRIX_THREAD_ATTRIBUTE(scoped_lockable)
#define TAMRIX_GUARDED_BY(mutex) TAMRIX_THREAD_ATTRIBUTE(guarded_by(mutex))
#define TAMRIX_REQUIRES(...) TAMRIX_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define TAMRIX_EXCLUDES(...) TAMRIX_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define TAMRIX_ACQUIRE(...) TAMRIX_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define TAMRIX_RELEASE(...) TAMRIX_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))

namespace tamrix {

// Any thread may use either class; neither is recursive.
class TAMRIX_CAPABILITY("mutex") Mutex {
 public:
  void lock() TAMRIX_ACQUIRE() { mutex_.lock(); }
  void unlock() TAMRIX_RELEASE() { mutex_.unlock(); }

 private:
  friend class CondVar;
  friend class MutexLock;
  std::mutex mutex_;
};

// Holds a mutex for the length of a scope.
class TAMRIX_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) TAMRIX_ACQUIRE(mutex) : mutex_(mutex) {
    if (mutex_.mutex_.try_lock()) return;
    const auto start = std::chrono::steady_clock::now();
    mutex_.lock();
    waited_ = std::chrono::steady_clock::now() - start;
  }
  ~MutexLock() TAMRIX_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  // How long it took until other threads gave the mutex up.
  std::chrono::nanoseconds waited() const { return waited_; }

 private:
  Mutex& mutex_;
  std::chrono::nanoseconds waited_{};
};

class CondVar {
 public:
  enum class Wake { kSignalled, kTimedOut };

  // Waits until woken (spurious wake-ups count). REQUIRES: as waitUntil.
  void wait(Mutex& mutex) TAMRIX_REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
    condition_.wait(held);
    held.release();
  }

  // Waits until woken (spurious wake-ups count) or until `deadline`. REQUIRES: the caller holds `mutex`,
  // and does so again on return.
  Wake waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point deadline) TAMRIX_REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
    const std::cv_status status = condition_.wait_until(held, deadline);
    held.release();
    return status == std::cv_status::timeout ? Wake::kTimedOut : Wake::kSignalled;
  }

  void notifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace tamrix
