// The one way out for every line that tamrix writes for a person.
//
// Two kinds of line, both named by a typed message id (namespace tamrix::msg, log/message_ids.h):
//   log line    written when its level is at or above the current one; standard error
//   plain line  written whatever the level, because the user asked for it; standard output
//
// A line is the formatted catalogue text and a line end. With the timer on, log lines are preceded by the
// seconds since the logger was made ("%12.6f "). What becomes of lines, and the last line of a terminal below
// them, is told in log/console.h.
//
// Exit status: a message at kUrgent records return code 1; the entry ends the program with the first
// recorded code, or 0 when there is none.
#pragma once

#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "log/console.h"
#include "log/message.h"
#include "log/message_id.h"
#include "log/message_ids.h"
#include "log/mutex.h"

namespace tamrix {

// The numbers are the ones that callers and the property "loglevel" know.
enum Level : int { kDebug = 1, kProgress = 2, kInfo = 3, kWarning = 4, kUrgent = 5 };
// Their names, in that order.
inline constexpr std::array<std::string_view, 5> kLevelNames = {"DEBUG", "PROGRESS", "INFO", "WARNING",
                                                                "URGENT"};

// Lifetime: from the start of the program to its end; `logger` points at it in between.
// Threads: log, hint, tell, output, prompt, console and recordReturnCode from any thread, lines never
// interleave; everything else on the main thread while no other thread runs.
class Logger : public Message {
 public:
  // Log lines go to `logFd`, plain lines to `outputFd`. Nothing may be logged before init.
  explicit Logger(int logFd = 2, int outputFd = 1);
  // Logs its own end at kDebug.
  ~Logger();
  Logger(const Logger&) = delete;
  Logger& operator=(const Logger&) = delete;

  // Sets the level. Returns 0; the line mutex needs no set-up that could fail.
  [[nodiscard]] int init(int level);

  // Replaces level (1 to 5) and timer flag once the configuration is known.
  void reinit(int level, bool timer);

  // The number of a level by its upper-case name; an unknown name is reported at kWarning and counts as
  // kInfo.
  [[nodiscard]] int convertLevel(const std::string& name);

  // Writes the message with `args` when `level` is at or above the current one. A suppressed line costs
  // one compare: keep anything costly out of the argument list.
  template <class... Args>
  void log(Level level, MessageId<Args...> id, std::type_identity_t<Args>... args) {
    if (level < level_) return;
    writeLog(level, id.number, raw(args)...);
  }

  // Writes the message with `args` as a log line of any level, where a person watches: advice that no script
  // is to see.
  template <class... Args>
  void hint(MessageId<Args...> id, std::type_identity_t<Args>... args) {
    if (console_.isWatched()) writeLog(kWarning, id.number, raw(args)...);
  }

  // Writes `text` as a log line of any level.
  void tell(std::string_view text);

  // Writes the message with `args` as a plain line.
  template <class... Args>
  void output(MessageId<Args...> id, std::type_identity_t<Args>... args) {
    writeOutput(id.number, raw(args)...);
  }

  // Writes the message with `args` as plain output without a line end: a question to the user. When it is
  // answered, the console is to be told.
  template <class... Args>
  void prompt(MessageId<Args...> id, std::type_identity_t<Args>... args) {
    console_.ask(formatText(id.number, raw(args)...));
  }

  // As output, for a message without arguments whose number is computed (the usage text).
  void outputPlain(int id) { writeOutput(id); }

  // The message's text with `args` filled in.
  template <class... Args>
  std::string format(MessageId<Args...> id, std::type_identity_t<Args>... args) const {
    return formatText(id.number, raw(args)...);
  }

  // Writes `line`, a whole log line, with what precedes it. For a signal handler: takes no lock, allocates
  // nothing.
  void writeFromHandler(std::string_view line) const;

  int level() const { return level_; }
  Console& console() { return console_; }

  // Records a return code. The first one recorded is the run's: later ones change nothing.
  void recordReturnCode(int code) TAMRIX_EXCLUDES(mutex_);
  // Records `code` as if before all others: a reason to end the run that outranks what followed from it.
  void recordReturnCodeFirst(int code) TAMRIX_EXCLUDES(mutex_);
  // The first recorded return code, 0 when there is none.
  int returnCode() const TAMRIX_EXCLUDES(mutex_);

 private:
  template <class T>
  static T raw(T value) {
    return value;
  }
  static const char* raw(const Text& value) { return value.get(); }

  // Variadic because the texts are formats that load at run time; the typed ids above check the arguments.
  void writeLog(int level, int id, ...) TAMRIX_EXCLUDES(mutex_);
  void writeOutput(int id, ...) TAMRIX_EXCLUDES(mutex_);
  std::string formatText(int id, ...) const;
  std::optional<double> stamp() const;

  Console console_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  int level_ = kInfo;   // set before the pipeline's threads start
  bool timer_ = false;  // likewise
  mutable Mutex mutex_;
  std::optional<int> returnCode_ TAMRIX_GUARDED_BY(mutex_);
};

// The program's logger; set by the entry right after it is made, before anything logs.
extern Logger* logger;

}  // namespace tamrix
