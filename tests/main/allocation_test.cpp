// What the per-buffer path must not do: allocate, or put together log lines that nobody sees.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>

#include "log/logger.h"
#include "pipeline/run/module_manager.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wide_properties.h"

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
  const test::CapturedLog captured(kInfo);
  const test::TempDir dir;
  dir.file("in/f", std::string(static_cast<std::size_t>(buffers) * 64, 'x'));
  const test::WideProperties properties({{"srcpath", dir / "in"},
                                         {"srcspec", "f"},
                                         {"dstpath", dir / "out"},
                                         {"ignore-vendor-check", "enable"},
                                         {"sparse", "enable"},
                                         {"buffer-size", "64"},
                                         {"total-buffer-size", "1024"}});
  PipelineGlobals globals;
  ModuleManager manager;
  manager.setGlobals(&globals);
  const long before = allocations;
  EXPECT_EQ(manager.run(), 0);
  const long made = allocations - before;
  EXPECT_EQ(logger->returnCode(), 0);
  EXPECT_EQ(test::readFile(dir / "out/f").size(), static_cast<std::size_t>(buffers) * 64);
  return made;
}

TEST(PerBuffer, nothingIsAllocated) {
  allocationsOfACopy(1);  // makes what lives until the process ends
  const long few = allocationsOfACopy(10);
  EXPECT_EQ(allocationsOfACopy(2000), few);
}

TEST(SuppressedLine, isNotFormatted) {
  const test::CapturedLog captured(kInfo);
  // Formatting this would read the text; a suppressed line only looks at its level.
  const char* const unreadable = reinterpret_cast<const char*>(16);
  logger->log(kDebug, msg::kFileWriterNewFile, unreadable);
  EXPECT_EQ(captured.logText(), "");
}

}  // namespace
}  // namespace tamrix
