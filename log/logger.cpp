#include "log/logger.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace tamrix {

Logger* logger = nullptr;

namespace {

// A line being put together: in the stack buffer while it fits, on the heap otherwise.
class LineBuffer {
 public:
  void append(const char* text) { append(text, std::strlen(text)); }

  void appendSeconds(double seconds) {
    std::array<char, 64> stamp;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by snprintf
    const int length = std::snprintf(stamp.data(), stamp.size(), "%12.6f ", seconds);
    append(stamp.data(), static_cast<std::size_t>(length));
  }

  void appendFormatted(const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const std::size_t room = heap_.empty() ? stack_.size() - length_ : 0;
    const int needed = std::vsnprintf(stack_.data() + length_, room, format, args);
    if (needed >= 0 && static_cast<std::size_t>(needed) < room) {
      length_ += static_cast<std::size_t>(needed);
    } else if (needed >= 0) {
      toHeap();
      const std::size_t before = heap_.size();
      heap_.resize(before + static_cast<std::size_t>(needed) + 1);
      (void)std::vsnprintf(heap_.data() + before, static_cast<std::size_t>(needed) + 1, format, again);
      heap_.pop_back();
    }
    va_end(again);
  }

  std::string_view view() const {
    return heap_.empty() ? std::string_view(stack_.data(), length_) : std::string_view(heap_);
  }

 private:
  void append(const char* text, std::size_t size) {
    if (heap_.empty() && length_ + size <= stack_.size()) {
      std::memcpy(stack_.data() + length_, text, size);
      length_ += size;
    } else {
      toHeap();
      heap_.append(text, size);
    }
  }

  void toHeap() {
    if (heap_.empty()) heap_.assign(stack_.data(), length_);
  }

  std::array<char, 4096> stack_;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled as it grows
  std::size_t length_ = 0;
  std::string heap_;
};

// Waits until `fd` takes more, is found to be closed on the other side, or a signal comes.
void waitForRoom(int fd) {
  struct pollfd waited {
    fd, POLLOUT, 0
  };
  (void)::poll(&waited, 1, -1);
}

// Writes all of `line`. A full non-blocking pipe is waited for as a blocking one would be; what can't be
// written at all is dropped on purpose.
void writeWhole(int fd, std::string_view line) {
  while (!line.empty()) {
    const ssize_t written = ::write(fd, line.data(), line.size());
    const int error = errno;
    if (written < 0 && error == EAGAIN) waitForRoom(fd);
    if (written < 0 && (error == EINTR || error == EAGAIN)) continue;
    if (written <= 0) return;
    line.remove_prefix(static_cast<std::size_t>(written));
  }
}

// Appends the text of `id` with `args`, or the stand-in for an id that the catalogue lacks.
void appendMessage(LineBuffer& line, const char* format, const std::string& fallback, va_list args) {
  if (format != nullptr) {
    line.appendFormatted(format, args);
  } else {
    line.append(fallback.c_str());
  }
}

}  // namespace

Logger::Logger(int logFd, int outputFd) : logFd_(logFd), outputFd_(outputFd) {}

Logger::~Logger() { log(kDebug, msg::kLoggerDestructor); }

int Logger::init(int level) {
  level_ = level;
  return 0;
}

void Logger::reinit(int level, bool timer) {
  level_ = level;
  timer_ = timer;
  log(kDebug, msg::kLoggerLevelSet, std::string(kLevelNames.at(static_cast<std::size_t>(level - 1))));
}

int Logger::convertLevel(const std::string& name) {
  for (std::size_t i = 0; i < kLevelNames.size(); ++i) {
    if (kLevelNames.at(i) == name) return static_cast<int>(i) + 1;
  }
  log(kWarning, msg::kLoggerLevelNotRecognized, name);
  return kInfo;
}

void Logger::recordReturnCode(int code) {
  const MutexLock lock(mutex_);
  if (!returnCode_) returnCode_ = code;
}

void Logger::recordReturnCodeFirst(int code) {
  const MutexLock lock(mutex_);
  returnCode_ = code;
}

int Logger::returnCode() const {
  const MutexLock lock(mutex_);
  return returnCode_.value_or(0);
}

void Logger::writeLog(int level, int id, ...) {
  LineBuffer line;
  if (timer_) {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
    line.appendSeconds(elapsed.count());
  }
  const char* const format = find(id);
  va_list args;
  va_start(args, id);
  appendMessage(line, format, format != nullptr ? "" : text(id), args);
  va_end(args);
  line.append("\n");

  const MutexLock lock(mutex_);
  if (level >= kUrgent && !returnCode_) returnCode_ = 1;
  writeWhole(logFd_, line.view());
}

void Logger::writeOutput(int id, const char* end, ...) {
  LineBuffer line;
  const char* const format = find(id);
  va_list args;
  va_start(args, end);
  appendMessage(line, format, format != nullptr ? "" : text(id), args);
  va_end(args);
  line.append(end);

  const MutexLock lock(mutex_);
  writeWhole(outputFd_, line.view());
}

void Logger::writeFromHandler(std::string_view line) const {
  const int error = errno;
  if (timer_) {
    // As "%12.6f ", without printf.
    std::array<char, 13> stamp;  // NOLINT(cppcoreguidelines-pro-type-member-init): filled
    stamp.fill(' ');
    auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start_)
            .count();
    for (std::size_t at = stamp.size() - 2; at < stamp.size() && (left > 0 || at > 3); --at) {
      stamp.at(at) = at == 5 ? '.' : static_cast<char>('0' + left % 10);
      if (at != 5) left /= 10;
    }
    writeWhole(logFd_, {stamp.data(), stamp.size()});
  }
  writeWhole(logFd_, line);
  errno = error;
}

std::string Logger::formatText(int id, ...) const {
  LineBuffer line;
  const char* const format = find(id);
  va_list args;
  va_start(args, id);
  appendMessage(line, format, format != nullptr ? "" : text(id), args);
  va_end(args);
  return std::string(line.view());
}

}  // namespace tamrix
