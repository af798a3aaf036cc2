// Where lines go: standard error and standard output, and the last line of a terminal.
//
// A last line stands below all others, is drawn over itself, and is never there when anything else is
// written: it is erased with the write that brings a log line, and drawn again below it. While a question is
// open there is none. What is written above it is, byte for byte, what is written without it.
//
// It is shown where standard error is a terminal that understands the usual sequences (EL, DECAWM; see
// console_codes(4)), in the process group that has the terminal. The environment variable TAMRIX_PROGRESS
// overrules that: "never" is as if standard error were no terminal, "always" as if it were one.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "log/mutex.h"

namespace tamrix {

// Threads: settle before others run; endFromHandler and writeFromHandler in a signal handler; everything else
// from any thread, lines never interleave. A pipe that is full is waited for; what can't be written (closed
// stream, full device) is dropped. Lifetime: the logger's.
class Console {
 public:
  Console(int logFd, int outputFd) : logFd_(logFd), outputFd_(outputFd) {}
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  // Finds out who is at the other end. `setting` is the value of TAMRIX_PROGRESS, null when it has none.
  // Returns false when that is none of its three values, which then counts as "auto". Without this call,
  // nobody watches.
  [[nodiscard]] bool settle(const char* setting);
  // Whether a person reads standard error as it is written.
  bool isWatched() const { return isWatched_; }
  // Whether a last line may be shown at all.
  bool hasLastLine() const { return hasLastLine_; }
  // Whether text on the terminal is UTF-8, by the locale.
  bool takesUtf8() const { return takesUtf8_; }

  // Write `line`, whole, line end included.
  void writeLog(std::string_view line) TAMRIX_EXCLUDES(mutex_);
  void writeOutput(std::string_view line) TAMRIX_EXCLUDES(mutex_);
  // Writes a question, which ends no line, to standard output. There is no last line until it is answered, and
  // it is asked again below a log line.
  void ask(std::string_view question) TAMRIX_EXCLUDES(mutex_);
  // `lineEnded`: whether the person who answered has ended the line on the terminal by doing so.
  void answered(bool lineEnded) TAMRIX_EXCLUDES(mutex_);
  // Whether a question to a person is open.
  bool isAsking() const { return asking_; }

  // How many columns a last line may have now; 0 when none is to be shown.
  int room() TAMRIX_EXCLUDES(mutex_);
  // Shows `text`, at most so many columns and nothing to be escaped, as the last line; an empty text erases
  // it. Leaves the screen as it is when the terminal takes nothing at the moment: a run doesn't wait for it.
  void show(std::string_view text) TAMRIX_EXCLUDES(mutex_);

  // Erases the last line, for good.
  void end() TAMRIX_EXCLUDES(mutex_);
  // To be called before the process is suspended, and when it goes on. A question is asked again.
  void leave() TAMRIX_EXCLUDES(mutex_);
  void comeBack() TAMRIX_EXCLUDES(mutex_);

  // As end, for a signal handler, and ends the line of an open question. Takes no lock, allocates nothing.
  void endFromHandler();
  // Writes `text` to standard error. Takes no lock, allocates nothing.
  void writeFromHandler(std::string_view text) const;

 private:
  bool mayShow() TAMRIX_REQUIRES(mutex_);
  void put(std::string_view before, std::string_view last) TAMRIX_REQUIRES(mutex_);
  void erase() TAMRIX_REQUIRES(mutex_);

  const int logFd_;
  const int outputFd_;

  // Set by settle.
  bool isWatched_ = false;
  bool hasLastLine_ = false;  // one may be shown at all
  bool isTerminal_ = false;   // standard error
  bool outputIsTerminal_ = false;
  bool takesUtf8_ = false;

  Mutex mutex_;
  std::string last_ TAMRIX_GUARDED_BY(mutex_);      // on the screen; empty: there is none
  std::string question_ TAMRIX_GUARDED_BY(mutex_);  // open on the terminal; empty: none

  // For the handler. A draw under way is waited for a moment, so that nothing is drawn behind its back.
  std::atomic<bool> drawing_{false};
  std::atomic<bool> shown_{false};
  std::atomic<bool> asking_{false};
  std::atomic<bool> ended_{false};
  static_assert(std::atomic<bool>::is_always_lock_free);
};

}  // namespace tamrix
