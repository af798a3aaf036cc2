// What the per-buffer path must not do: allocate, as putting together log lines that nobody sees would.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "tests/support/manager_run.h"

namespace {

std::atomic<long> allocations{0};

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace tamrix {
namespace {

// The allocations of a run that copies one file of `buffers` buffers through all stages.
long allocationsOfACopy(int buffers) {
  const test::TempDir dir;
  dir.file("src/f", std::string(static_cast<std::size_t>(buffers) * 64, 'x'));
  const long before = allocations;
  const test::ManagerRun run(
      dir, {{"sparse", "enable"}, {"buffer-size", "64"}, {"total-buffer-size", "1024"}}, kInfo);
  const long made = allocations - before;
  EXPECT_EQ(run.code + logger->returnCode(), 0);
  EXPECT_EQ(test::readFile(dir / "dst/f").size(), static_cast<std::size_t>(buffers) * 64);
  return made;
}

TEST(PerBuffer, nothingIsAllocatedAndSoNoLineIsFormattedThatNobodySees) {
  allocationsOfACopy(1);  // makes what lives until the process ends
  const long few = allocationsOfACopy(10);
  EXPECT_EQ(allocationsOfACopy(2000), few);
}

}  // namespace
}  // namespace tamrix
