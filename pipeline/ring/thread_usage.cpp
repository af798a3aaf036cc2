#include "pipeline/ring/thread_usage.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>

#include "reader/record/unique_fd.h"

namespace tamrix {

namespace {

// The second of the three numbers in the file; none where there is no such file.
std::chrono::nanoseconds queuedTime() {
  const UniqueFd file(open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC));
  std::array<char, 80> text{};
  if (!file.isOpen() || read(file.get(), text.data(), text.size() - 1) <= 0) return {};
  char* next = nullptr;
  (void)std::strtoll(text.data(), &next, 10);
  return std::chrono::nanoseconds(std::strtoll(next, nullptr, 10));
}

}  // namespace

ThreadUsage ThreadUsage::now() {
  ThreadUsage usage;
  usage.queued = queuedTime();
  rusage counts{};
  getrusage(RUSAGE_THREAD, &counts);
  usage.sleeps = counts.ru_nvcsw;
  timespec processor{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &processor);
  usage.processor = std::chrono::seconds(processor.tv_sec) + std::chrono::nanoseconds(processor.tv_nsec);
  usage.clock = std::chrono::steady_clock::now().time_since_epoch();
  return usage;
}

}  // namespace tamrix
