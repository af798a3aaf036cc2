#include "bench/kept_memory.h"

#include <sys/mman.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

namespace tamrix::bench {

namespace {

// From the first free page to the system's look at all of them; PAGE_REPORTING_DELAY of Linux is 2 s.
constexpr std::chrono::milliseconds kReported(2200);

[[noreturn]] void fail() { throw std::system_error(errno, std::generic_category(), "taking memory"); }

}  // namespace

KeptMemory::KeptMemory(std::size_t needed)
    : bytes_(needed + needed / 2),
      memory_(
          mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {
  if (memory_ == MAP_FAILED) fail();
  // Where there are no large pages, it is as good as it gets.
  (void)madvise(memory_, bytes_, MADV_HUGEPAGE);
  take();
}

KeptMemory::~KeptMemory() { munmap(memory_, bytes_); }

void KeptMemory::give() {
  if (madvise(memory_, bytes_, MADV_DONTNEED) != 0) fail();
}

void KeptMemory::take() {
  const auto done = std::chrono::steady_clock::now() + kReported;
  if (madvise(memory_, bytes_, MADV_POPULATE_WRITE) != 0) fail();
  std::this_thread::sleep_until(done);
}

}  // namespace tamrix::bench
