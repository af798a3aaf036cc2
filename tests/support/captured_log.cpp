#include "tests/support/captured_log.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

namespace tamrix::test {

namespace {

std::string contentOf(int fd) {
  std::string content(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)), '\0');
  const ssize_t n = pread(fd, content.data(), content.size(), 0);
  content.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
  return content;
}

}  // namespace

CapturedLog::CapturedLog(Level level)
    : logFd_(memfd_create("log", MFD_CLOEXEC)),
      outputFd_(memfd_create("output", MFD_CLOEXEC)),
      logger_(logFd_, outputFd_),
      before_(tamrix::logger) {
  if (logger_.LoadMessage("tamrix") != 0 || logger_.init(level) != 0) {
    std::cerr << "CapturedLog: no catalogue\n";
    std::abort();
  }
  tamrix::logger = &logger_;
}

CapturedLog::~CapturedLog() {
  tamrix::logger = before_;
  close(logFd_);
  close(outputFd_);
}

std::string CapturedLog::logText() const { return contentOf(logFd_); }

int CapturedLog::countLines(const std::string& line) const {
  const std::string whole = "\n" + logText() + contentOf(outputFd_);
  const std::string wanted = "\n" + line + "\n";
  int count = 0;
  for (std::size_t at = whole.find(wanted); at != std::string::npos; at = whole.find(wanted, at + 1)) ++count;
  return count;
}

}  // namespace tamrix::test
