// Another program, run as a child of this one: what tests and benchmarks launch.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tamrix::model {

// How a program is started.
struct ChildSetup {
  std::vector<std::string> words;                                   // looked up in PATH; and its arguments
  std::map<int, int> descriptors = {};                              // stands in for a stream; -1: closed
  std::map<std::string, std::optional<std::string>> environment{};  // changes to the caller's; none: unset
  std::function<bool()> prepare = {};                               // in the child; false: nothing is started
};

// How it ended, and what it and the processes that it waited for cost.
struct ChildEnd {
  int status = 0;   // exit status, 127 when it couldn't be started; minus the number of a signal
  double cpu = 0;   // seconds, user and system
  double peak = 0;  // bytes resident, of the largest single process
};

// A child, killed at the latest with this object. Signals have their ordinary actions in it. One thread.
class ChildProcess {
 public:
  // Throws std::system_error when there is no child to be had.
  explicit ChildProcess(ChildSetup setup);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // A descriptor that becomes readable when the child has ended.
  int handle() const { return handle_; }
  // Does nothing once the end was waited for.
  void signal(int number) const;
  // Whether a signal was sent that no thread of it has taken yet.
  bool hasPendingSignal() const;
  // REQUIRES: the end was not waited for.
  ChildEnd wait();

 private:
  pid_t pid_ = -1;  // -1: waited for
  int handle_ = -1;
};

}  // namespace tamrix::model
