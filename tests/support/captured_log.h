// A logger for tests: installs itself as the program's logger and keeps what is written.
#pragma once

#include <string>

#include "log/logger.h"

namespace tamrix::test {

// While it lives, `tamrix::logger` is a logger at the given level whose lines go to files in memory.
// One at a time, made and destroyed on the test's thread while no stage runs.
class CapturedLog {
 public:
  explicit CapturedLog(Level level = kDebug);
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  Logger& logger() { return logger_; }

  // All that was written so far.
  std::string logText() const;
  std::string outputText() const;

  // How many lines (of plain lines only: outputCount) are exactly this message with these arguments.
  template <class... Args>
  int count(MessageId<Args...> id, std::type_identity_t<Args>... args) const {
    return countLines(logText() + outputText(), logger_.format(id, args...));
  }
  template <class... Args>
  int outputCount(MessageId<Args...> id, std::type_identity_t<Args>... args) const {
    return countLines(outputText(), logger_.format(id, args...));
  }

 private:
  static int countLines(const std::string& text, const std::string& line);

  const int logFd_;
  const int outputFd_;
  Logger logger_;
  Logger* const before_;
};

}  // namespace tamrix::test
