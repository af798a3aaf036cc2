// Running a command and what it cost.
#pragma once

#include <string>
#include <vector>

#include "model/child_process.h"

namespace tamrix::bench {

struct ChildRun {
  double wall = 0;  // seconds
  model::ChildEnd end;
  std::string text;  // its standard error
};

// Runs `words` (the program is looked up in PATH) with its standard error in the file `log` and no standard
// output, and waits for its end. Throws std::system_error when there is no process or no log to be had.
ChildRun runChild(const std::vector<std::string>& words, const std::string& log);

// The median of figures; REQUIRES one at least.
double median(std::vector<double> figures);

// Prints a figure and its target, of which it is to be no less, or no more.
enum class Target { kAtLeast, kAtMost };
void tell(const char* what, double reached, Target kind, double target);

}  // namespace tamrix::bench
