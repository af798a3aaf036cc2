// Running a command and what it cost.
#pragma once

#include <string>
#include <vector>

namespace tamrix::bench {

struct ChildRun {
  double wall = 0;   // seconds
  double cpu = 0;    // seconds, user and system, of the command and what it waited for
  double peak = 0;   // bytes resident, of the largest single process
  int status = 0;    // as of wait(2)
  std::string text;  // its standard error
};

// Runs `words` (the program is looked up in PATH) with its standard error in the file `log` and no standard
// output, and waits for its end. Throws std::system_error when it can't be run.
ChildRun runChild(std::vector<std::string> words, const std::string& log);

// The median of figures; REQUIRES one at least.
double median(std::vector<double> figures);

}  // namespace tamrix::bench
