#include "tests/support/captured_log.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

namespace tamrix::test {

CapturedLog::CapturedLog(Level level)
    : fd_(memfd_create("log", MFD_CLOEXEC)), logger_(fd_, fd_), before_(tamrix::logger) {
  if (logger_.LoadMessage("tamrix") != 0 || logger_.init(level) != 0) {
    std::cerr << "CapturedLog: no catalogue\n";
    std::abort();
  }
  tamrix::logger = &logger_;
}

CapturedLog::~CapturedLog() {
  tamrix::logger = before_;
  close(fd_);
}

std::string CapturedLog::logText() const {
  std::string content(static_cast<std::size_t>(lseek(fd_, 0, SEEK_END)), '\0');
  const ssize_t n = pread(fd_, content.data(), content.size(), 0);
  content.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
  return content;
}

int CapturedLog::countLines(const std::string& line) const {
  const std::string whole = "\n" + logText();
  const std::string wanted = "\n" + line + "\n";
  int count = 0;
  for (std::size_t at = whole.find(wanted); at != std::string::npos; at = whole.find(wanted, at + 1)) ++count;
  return count;
}

}  // namespace tamrix::test
