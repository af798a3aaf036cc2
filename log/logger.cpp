#include "log/logger.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

namespace tamrix {

Logger* logger = nullptr;

namespace {

// A line being put together: in the stack buffer while it fits, on the heap otherwise.
class LineBuffer {
 public:
  // Begins with `stamp`, a number of seconds, if there is one.
  explicit LineBuffer(std::optional<double> stamp = std::nullopt) {
    if (!stamp) return;
    const int length = std::snprintf(stack_.data(), stack_.size(), "%12.6f ", *stamp);
    length_ = static_cast<std::size_t>(length);
  }

  void append(std::string_view text) { append(text.data(), text.size()); }

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

// Appends the text of `id` with `args`, or the stand-in for an id that the catalogue lacks.
void appendMessage(LineBuffer& line, const char* format, const std::string& fallback, va_list args) {
  if (format != nullptr) {
    line.appendFormatted(format, args);
  } else {
    line.append(fallback);
  }
}

}  // namespace

Logger::Logger(int logFd, int outputFd) : console_(logFd, outputFd) {}

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

// The seconds since the start, when lines have them before their text.
std::optional<double> Logger::stamp() const {
  if (!timer_) return std::nullopt;
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void Logger::writeLog(int level, int id, ...) {
  LineBuffer line(stamp());
  const char* const format = find(id);
  va_list args;
  va_start(args, id);
  appendMessage(line, format, format != nullptr ? "" : text(id), args);
  va_end(args);
  line.append("\n");

  if (level >= kUrgent) recordReturnCode(1);
  console_.writeLog(line.view());
}

void Logger::tell(std::string_view text) {
  LineBuffer line(stamp());
  line.append(text);
  line.append("\n");
  console_.writeLog(line.view());
}

void Logger::writeOutput(int id, ...) {
  LineBuffer line;
  const char* const format = find(id);
  va_list args;
  va_start(args, id);
  appendMessage(line, format, format != nullptr ? "" : text(id), args);
  va_end(args);
  line.append("\n");
  console_.writeOutput(line.view());
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
    console_.writeFromHandler({stamp.data(), stamp.size()});
  }
  console_.writeFromHandler(line);
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
