#include "log/console.h"

#include <langinfo.h>
#include <locale.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace tamrix {

namespace {

constexpr std::string_view kErase = "\r\033[K";
// Around the last line: what is too wide all the same (the terminal was made narrower just now, or counts a
// character's columns otherwise) must not begin a row that nobody erases.
constexpr std::string_view kNoWrap = "\033[?7l";
constexpr std::string_view kWrap = "\033[?7h";
constexpr int kUsualColumns = 80;
// Kept free behind the last line: the terminal shows an interrupt as "^C" there, and that must not begin a
// row.
constexpr int kEchoColumns = 3;
constexpr int kDrawChecks = 50;                // how often a handler looks whether a draw has ended,
constexpr timespec kDrawCheck = {0, 100'000};  // and how long it waits in between

bool waitForRoom(int fd, int timeoutMs) {
  struct pollfd waited {
    fd, POLLOUT, 0
  };
  return ::poll(&waited, 1, timeoutMs) > 0;
}

// Writes all of `text`. A full non-blocking pipe is waited for as a blocking one would be; what can't be
// written at all is dropped on purpose.
void writeWhole(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    const int error = errno;
    if (written < 0 && error == EAGAIN) (void)waitForRoom(fd, -1);
    if (written < 0 && (error == EINTR || error == EAGAIN)) continue;
    if (written <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

// Whether the terminal can erase the rest of a line.
bool canErase() {
  const char* const type = std::getenv("TERM");
  return type != nullptr && *type != '\0' && std::string_view(type) != "dumb";
}

bool localeIsUtf8() {
  const locale_t own = newlocale(LC_CTYPE_MASK, "", nullptr);
  if (own == nullptr) return false;
  const bool isUtf8 = std::string_view(nl_langinfo_l(CODESET, own)) == "UTF-8";
  freelocale(own);
  return isUtf8;
}

}  // namespace

bool Console::settle(const char* setting) {
  const std::string_view wish = setting == nullptr ? "auto" : setting;
  const bool always = wish == "always";
  isTerminal_ = isatty(logFd_) != 0;
  outputIsTerminal_ = isatty(outputFd_) != 0;
  takesUtf8_ = localeIsUtf8();
  isWatched_ = wish != "never" && (always || isTerminal_);
  hasLastLine_ = isWatched_ && (always || canErase());
  return always || wish == "never" || wish == "auto";
}

void Console::writeLog(std::string_view line) {
  const MutexLock lock(mutex_);
  if (asking_) writeWhole(outputFd_, "\n");
  if (last_.empty()) {
    writeWhole(logFd_, line);
  } else {
    put(line, last_);
  }
  if (asking_) writeWhole(outputFd_, question_);
}

void Console::writeOutput(std::string_view line) {
  const MutexLock lock(mutex_);
  const bool covers = outputIsTerminal_ && !last_.empty();
  if (covers) writeWhole(logFd_, kErase);
  writeWhole(outputFd_, line);
  if (covers) put({}, last_);
}

void Console::ask(std::string_view question) {
  const MutexLock lock(mutex_);
  erase();
  writeWhole(outputFd_, question);
  if (!isWatched_ || !outputIsTerminal_) return;
  question_ = question;
  asking_ = true;
}

void Console::answered(bool lineEnded) {
  const MutexLock lock(mutex_);
  question_.clear();
  if (asking_.exchange(false) && !lineEnded) writeWhole(outputFd_, "\n");
}

// Whether the process has the terminal, and nothing else has the last line's place.
bool Console::mayShow() {
  if (!hasLastLine_ || ended_ || asking_) return false;
  if (!isTerminal_) return true;
  // Another terminal than the one that controls the process is everybody's.
  const pid_t foreground = tcgetpgrp(logFd_);
  if (foreground < 0 || foreground == getpgrp()) return true;
  last_.clear();  // others write there now: nothing of it is ours to erase
  shown_ = false;
  return false;
}

int Console::room() {
  const MutexLock lock(mutex_);
  if (!mayShow()) return 0;
  struct winsize size {};
  const bool known = isTerminal_ && ioctl(logFd_, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return (known ? size.ws_col : kUsualColumns) - kEchoColumns;
}

void Console::show(std::string_view text) {
  const MutexLock lock(mutex_);
  if (!mayShow() || !waitForRoom(logFd_, 0)) return;
  if (text.empty()) {
    erase();
  } else {
    last_ = text;
    put({}, last_);
  }
}

// Writes `before` in place of the last line and `last` below it, unless a handler has ended that.
void Console::put(std::string_view before, std::string_view last) {
  drawing_ = true;
  const bool draws = !ended_;
  std::string text(kErase);
  text.append(before);
  if (draws) text.append(kNoWrap).append(last).append(kWrap);
  shown_ = draws;
  writeWhole(logFd_, text);
  // A handler that interrupted this very thread could not wait for it.
  if (draws && ended_ && shown_.exchange(false)) writeWhole(logFd_, kErase);
  drawing_ = false;
}

void Console::erase() {
  if (!last_.empty()) writeWhole(logFd_, kErase);
  last_.clear();
  shown_ = false;
}

void Console::end() {
  const MutexLock lock(mutex_);
  if (mayShow()) erase();
  ended_ = true;
}

void Console::leave() {
  const MutexLock lock(mutex_);
  if (asking_) writeWhole(outputFd_, "\n");
  erase();
}

void Console::comeBack() {
  const MutexLock lock(mutex_);
  last_.clear();  // the screen has been others'
  shown_ = false;
  const bool hasTerminal = tcgetpgrp(logFd_) == getpgrp();
  if (asking_ && hasTerminal) writeWhole(outputFd_, question_);
}

void Console::endFromHandler() {
  ended_ = true;
  for (int i = 0; i < kDrawChecks && drawing_; ++i) nanosleep(&kDrawCheck, nullptr);
  if (!waitForRoom(logFd_, 0)) return;
  if (shown_.exchange(false)) writeWhole(logFd_, kErase);
  if (asking_.exchange(false)) writeWhole(outputFd_, "\n");
}

void Console::writeFromHandler(std::string_view text) const { writeWhole(logFd_, text); }

}  // namespace tamrix
