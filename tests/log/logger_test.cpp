#include "log/logger.h"

#include <gtest/gtest.h>

#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/captured_log.h"

namespace tamrix {
namespace {

using test::CapturedLog;

TEST(Logger, textsAreWrittenWholeWhateverTheirLengthAndBytes) {
  for (const std::size_t length : {0U, 4086U, 4087U, 4096U, 100000U}) {
    const std::string path(length, '%');
    for (const bool timer : {false, true}) {
      const CapturedLog captured;
      logger->reinit(kInfo, timer);
      logger->log(kInfo, msg::kFileWriterCopy, path, "x\n\xff");
      const std::size_t stamp = timer ? std::string_view("    0.000123 ").size() : 0;
      EXPECT_EQ(captured.logText().substr(stamp), "Copy " + path + " to x\n\xff\n") << length;
    }
  }
}

TEST(Logger, linesOfManyThreadsDoNotInterleave) {
  CapturedLog captured;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i) logger->log(kInfo, msg::kWriterModuleFilesCopied, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < 200; ++i) EXPECT_EQ(captured.count(msg::kWriterModuleFilesCopied, i), 4) << i;
}

}  // namespace
}  // namespace tamrix
