#include "log/logger.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "tests/support/captured_log.h"

namespace tamrix {
namespace {

using test::CapturedLog;

TEST(Logger, levelDecidesWhatIsWrittenAndTheFirstCodeWinsUnlessAnotherIsPutFirst) {
  for (int level = kDebug; level <= kUrgent; ++level) {
    CapturedLog captured(static_cast<Level>(level));
    logger->log(kDebug, msg::kMomRun);
    logger->log(kInfo, msg::kWriteCopy, "a", "b");
    EXPECT_EQ(logger->returnCode(), 0);
    logger->log(kUrgent, msg::kMomChecksumMissing);
    EXPECT_EQ(captured.count(msg::kMomRun), level <= kDebug ? 1 : 0) << level;
    EXPECT_EQ(captured.count(msg::kWriteCopy, "a", "b"), level <= kInfo ? 1 : 0) << level;
    EXPECT_EQ(captured.count(msg::kMomChecksumMissing), 1) << level;
    logger->recordReturnCode(2);
    EXPECT_EQ(logger->returnCode(), 1);
    logger->recordReturnCodeFirst(130);
    EXPECT_EQ(logger->returnCode(), 130);
  }
}

TEST(Logger, textsAreWrittenWholeWhateverTheirLengthAndBytes) {
  CapturedLog captured;
  for (const std::size_t length : {0U, 4086U, 4087U, 4096U, 100000U}) {
    const std::string path(length, '%');
    captured.clear();
    logger->log(kInfo, msg::kWriteCopy, path, "x\n\xff");
    EXPECT_EQ(captured.logText(), "Copy " + path + " to x\n\xff\n") << length;
  }
  logger->outputPlain(30999);
  EXPECT_EQ(captured.outputText(), "Unknown message ID: 30999 -\n");
  EXPECT_NE(Message().LoadMessage("no-such-package"), 0);
}

TEST(Logger, linesOfManyThreadsDoNotInterleave) {
  CapturedLog captured;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i) logger->log(kInfo, msg::kWriterFilesCopied, i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (int i = 0; i < 200; ++i) EXPECT_EQ(captured.count(msg::kWriterFilesCopied, i), 4) << i;
}

TEST(Logger, aStreamThatTakesNothingStopsNothing) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  for (const int stream : {-1, full}) {
    Logger blocked(stream, stream);
    ASSERT_EQ(blocked.LoadMessage("tamrix"), 0);
    ASSERT_EQ(blocked.init(kInfo), 0);
    blocked.output(msg::kMainEnded, 0);
    blocked.log(kUrgent, msg::kMomChecksumMissing);
    EXPECT_EQ(blocked.returnCode(), 1);
  }
  close(full);
}

}  // namespace
}  // namespace tamrix
