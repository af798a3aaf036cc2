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

  // All log lines so far.
  std::string logText() const;

  // How many lines of the log and of plain output are exactly this message with these arguments.
  template <class... Args>
  int count(MessageId<Args...> id, std::type_identity_t<Args>... args) const {
    return countLines(logger_.format(id, args...));
  }

 private:
  int countLines(const std::string& line) const;

  const int logFd_;
  const int outputFd_;
  Logger logger_;
  Logger* const before_;
};

}  // namespace tamrix::test
