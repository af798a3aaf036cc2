// A terminal with a shell in it, as a person sees it: a terminal emulator tells what is on the screen.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "model/child_process.h"
#include "tests/support/temp_dir.h"

struct VTerm;

namespace tamrix::test {

// The shell is interactive and has job control; its prompt is "$ ". Tall enough that nothing scrolls off, and
// wide enough or not. Nothing sleeps: the screen is looked at again whenever something was written. One
// thread.
class Terminal {
 public:
  // `environment`: changes to the test's own.
  explicit Terminal(int columns, std::map<std::string, std::optional<std::string>> environment = {});
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Gives the shell a command, or the command "./run", which runs the program with `args`.
  void command(const std::string& line);
  void run(const std::vector<std::string>& args);
  void type(const std::string& keys) const;
  void resize(int columns);
  // To the program, stopped or not.
  void signal(int number) const;

  // Each waits for what it says, and fails the test when that doesn't come in far longer than any test's
  // share. So many rows of the screen match the whole of `pattern`, or more.
  [[nodiscard]] bool shows(const std::string& pattern, int times = 1);
  // The last command has ended or stopped, and the shell asks for the next one, at the beginning of a line.
  [[nodiscard]] bool hasPrompt();

  // What is on the screen, row by row, without blanks at the end.
  std::vector<std::string> rows() const;
  int count(const std::string& pattern) const;

 private:
  template <class Condition>
  bool waitFor(Condition condition);

  TempDir dir_;
  int columns_;
  int master_ = -1;
  VTerm* const screen_;
  int commands_ = 0;
  std::optional<model::ChildProcess> shell_;
};

}  // namespace tamrix::test
