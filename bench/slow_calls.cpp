#include "bench/slow_calls.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

namespace {

std::atomic<long> delay{0};  // nanoseconds

void sleepFirst() {
  const long time = delay.load(std::memory_order_relaxed);
  if (time == 0) return;
  // The system may add this to a sleep; by default 50 us.
  thread_local const int slack = prctl(PR_SET_TIMERSLACK, 1UL);
  (void)slack;
  const struct timespec wanted { 0, time };
  clock_nanosleep(CLOCK_MONOTONIC, 0, &wanted, nullptr);
}

}  // namespace

namespace tamrix::bench {

void setCallDelay(std::chrono::nanoseconds time) { delay.store(static_cast<long>(time.count())); }

}  // namespace tamrix::bench

extern "C" {

int stat(const char* path, struct stat* status) noexcept {
  sleepFirst();
  return fstatat(AT_FDCWD, path, status, 0);
}

int lstat(const char* path, struct stat* status) noexcept {
  sleepFirst();
  return fstatat(AT_FDCWD, path, status, AT_SYMLINK_NOFOLLOW);
}

ssize_t getxattr(const char* path, const char* name, void* value, size_t size) noexcept {
  sleepFirst();
  return syscall(SYS_getxattr, path, name, value, size);
}

ssize_t listxattr(const char* path, char* names, size_t size) noexcept {
  sleepFirst();
  return syscall(SYS_listxattr, path, names, size);
}

}  // extern "C"
