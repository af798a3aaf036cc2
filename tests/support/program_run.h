// Runs the built program as a user does and keeps what it said and how it ended.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <array>
#include <chrono>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "log/logger.h"
#include "model/child_process.h"

namespace tamrix::test {

// What surrounds a run. The default is an ordinary user's: root is run without its power over file modes.
struct ProgramOptions {
  std::map<std::string, std::optional<std::string>> environment{};  // changes to the test's own; none: unset
  std::optional<std::string> input = {};         // standard input; none: a pipe that send() feeds
  std::map<int, int> descriptors = {};           // stands in for the standard stream; -1: closed
  std::map<__rlimit_resource, rlim_t> limits{};  // soft and hard
  std::vector<int> ignoredSignals = {};
  mode_t umask = 022;
  std::string program = {};  // empty: tamrix
};

// What came of a run.
struct ProgramRun {
  std::string out;  // standard output
  std::string err;  // standard error
  int status = 0;   // exit status; minus the number of the signal that ended it

  // How many lines of either stream are exactly `line`.
  int count(std::string_view line) const;
  // The lines of standard error that begin with `prefix`, without it.
  std::vector<std::string> linesAfter(std::string_view prefix) const;
};
std::ostream& operator<<(std::ostream& stream, const ProgramRun& run);

// A run under way. A child that takes longer than any test's share is killed and fails the test, as does a
// finding of a sanitizer. One thread.
class RunningProgram {
 public:
  explicit RunningProgram(const std::vector<std::string>& args, const ProgramOptions& options = {});
  ~RunningProgram();
  RunningProgram(const RunningProgram&) = delete;
  RunningProgram& operator=(const RunningProgram&) = delete;

  // Writes to the program's standard input.
  void send(std::string_view text) const;
  void signal(int number) const { child_->signal(number); }
  // The same; waits until the program has taken it. What it writes meanwhile is not read.
  void interrupt(int number) const;
  // Waits until the program has written `text` to either stream; false when it ended without.
  [[nodiscard]] bool waitForText(std::string_view text);
  // Waits for the program's end.
  const ProgramRun& wait();

 private:
  bool readMore();

  std::optional<model::ChildProcess> child_;
  bool running_ = true;
  int input_ = -1;
  std::array<int, 2> outputs_{-1, -1};
  const std::chrono::steady_clock::time_point deadline_;
  ProgramRun run_;
};

// Runs the program to its end; without `options.input` its standard input is empty.
ProgramRun runProgram(const std::vector<std::string>& args, ProgramOptions options = {});

// A logger that only knows the texts.
const Logger& catalogue();

// The line that the program prints for a message.
template <class... Args>
std::string text(MessageId<Args...> id, std::type_identity_t<Args>... args) {
  return catalogue().format(id, args...);
}

}  // namespace tamrix::test
