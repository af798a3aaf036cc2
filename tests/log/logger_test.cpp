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

TEST(Logger, levelDecidesWhatIsWrittenAndUrgentRecordsACode) {
  for (int level = kDebug; level <= kUrgent; ++level) {
    CapturedLog captured(static_cast<Level>(level));
    logger->log(kDebug, msg::kMomRun);
    logger->log(kInfo, msg::kWriteCopy, "a", "b");
    EXPECT_EQ(logger->returnCode(), 0);
    logger->log(kUrgent, msg::kMomChecksumMissing);
    EXPECT_EQ(captured.count(msg::kMomRun), level <= kDebug ? 1 : 0) << level;
    EXPECT_EQ(captured.count(msg::kWriteCopy, "a", "b"), level <= kInfo ? 1 : 0) << level;
    EXPECT_EQ(captured.count(msg::kMomChecksumMissing), 1) << level;
    EXPECT_EQ(logger->returnCode(), 1);
  }
}

TEST(Logger, firstRecordedCodeWinsUnlessAnotherIsPutFirst) {
  CapturedLog captured;
  logger->recordReturnCode(1);
  logger->recordReturnCode(2);
  EXPECT_EQ(logger->returnCode(), 1);
  logger->recordReturnCodeFirst(130);
  EXPECT_EQ(logger->returnCode(), 130);
}

TEST(Logger, plainOutputIgnoresTheLevelAndPromptHasNoLineEnd) {
  CapturedLog captured(kUrgent);
  logger->output(msg::kMainEnded, 7);
  logger->prompt(msg::kListOverwrite, "/a b");
  EXPECT_EQ(captured.outputText(),
            "tamrix:main - Ended with return code 7\nTamrix: Overwrite '/a b'? (y/n/a) ");
  EXPECT_EQ(captured.logText(), "");
}

TEST(Logger, textsAreWrittenWholeWhateverTheirLengthAndBytes) {
  CapturedLog captured;
  for (const std::size_t length : {0U, 4000U, 4086U, 4087U, 4096U, 5000U, 100000U}) {
    const std::string path(length, '%');
    captured.clear();
    logger->log(kInfo, msg::kWriteCopy, path, "x\n\xff");
    EXPECT_EQ(captured.logText(), "Copy " + path + " to x\n\xff\n") << length;
  }
}

TEST(Logger, timerPutsTheSecondsBeforeLogLinesOnly) {
  CapturedLog captured;
  logger->reinit(kInfo, true);
  logger->log(kInfo, msg::kWriterFilesCopied, 3);
  logger->output(msg::kMainEnded, 0);
  const std::string line = captured.logText();
  const std::string text = " 3 file(s) copied\n";
  ASSERT_TRUE(line.ends_with(text)) << line;
  // Seconds with six decimals in twelve columns.
  ASSERT_EQ(line.size(), 12 + text.size()) << line;
  EXPECT_EQ(line[5], '.');
  EXPECT_EQ(line.find_first_not_of("0123456789.", line.find_first_not_of(' ')), 12U) << line;
  EXPECT_EQ(captured.outputText(), "tamrix:main - Ended with return code 0\n");
}

TEST(Logger, linesOfManyThreadsDoNotInterleave) {
  CapturedLog captured;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i) logger->log(kInfo, msg::kWriterFilesCopied, t * 1000 + i);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::vector<std::string> lines = captured.logLines();
  EXPECT_EQ(lines.size(), 800U);
  for (const std::string& line : lines) {
    EXPECT_EQ(line.find(" file(s) copied"), line.find_first_not_of("0123456789")) << line;
  }
}

TEST(Logger, aStreamThatTakesNothingStopsNothing) {
  Logger closed(-1, -1);
  ASSERT_EQ(closed.LoadMessage("tamrix"), 0);
  ASSERT_EQ(closed.init(kInfo), 0);
  closed.output(msg::kMainEnded, 0);
  closed.log(kUrgent, msg::kMomChecksumMissing);
  EXPECT_EQ(closed.returnCode(), 1);

  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  {
    Logger blocked(full, full);
    ASSERT_EQ(blocked.LoadMessage("tamrix"), 0);
    ASSERT_EQ(blocked.init(kInfo), 0);
    blocked.log(kUrgent, msg::kMomChecksumMissing);
    EXPECT_EQ(blocked.returnCode(), 1);
  }
  close(full);
}

TEST(Message, unknownIdsAndMissingPackagesAreTold) {
  CapturedLog captured;
  EXPECT_EQ(logger->text(30998), "Unknown message ID: 30998 -");
  EXPECT_EQ(logger->text(30153), "%d file(s) copied");
  EXPECT_EQ(logger->text(30535), "ERROR Deleting file with copy ERROR, \"%s\" - %s");
  EXPECT_EQ(logger->text(30264), "Buffer:BufferQcreateQ - Create %d buffers ");
  EXPECT_FALSE(logger->contains(30951));
  logger->outputPlain(30999);
  EXPECT_EQ(captured.outputText(), "Unknown message ID: 30999 -\n");

  Message other;
  EXPECT_NE(other.LoadMessage("no-such-package"), 0);
}

TEST(Logger, levelNamesMapAndUnknownOnesAreReported) {
  CapturedLog captured;
  EXPECT_EQ(logger->convertLevel("DEBUG"), 1);
  EXPECT_EQ(logger->convertLevel("URGENT"), 5);
  EXPECT_EQ(logger->convertLevel("debug"), 3);
  EXPECT_EQ(captured.count(msg::kLoggerLevelNotRecognized, "debug"), 1);
}

}  // namespace
}  // namespace tamrix
