// What a test of the program copies: a source and a destination directory, and a batch file.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "log/message_ids.h"
#include "tests/support/program_run.h"
#include "tests/support/temp_dir.h"

namespace tamrix {

namespace test {

// Files by path below a directory; directories are "<dir>".
using Contents = std::map<std::string, std::string>;

class CopyScene {
 public:
  CopyScene();

  const TempDir& dir() const { return dir_; }
  std::string source(std::string_view name) const { return dir_ / ("source/" + std::string(name)); }
  std::string destination(std::string_view name) const { return dir_ / ("target/" + std::string(name)); }
  std::string addSource(std::string_view name, std::string_view content = "new") const {
    return dir_.file("source/" + std::string(name), content);
  }
  std::string addDestination(std::string_view name, std::string_view content = "old") const {
    return dir_.file("target/" + std::string(name), content);
  }
  // A source that no test's patience lasts for: sparse.
  std::string addEndlessSource(std::string_view name) const;

  // Copies every file of the source directory, then whatever `more` says.
  std::vector<std::string> args(const std::vector<std::string>& more = {}) const;
  ProgramRun copy(const std::vector<std::string>& more = {}, const ProgramOptions& options = {}) const {
    return runProgram(args(more), options);
  }

  // Writes a batch file with these parameters and absolute source and destination paths; returns the options
  // to copy what it says.
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  std::vector<std::string> batch(const Pairs& pairs, const std::string& params = "") const;
  ProgramRun copyBatch(const Pairs& pairs) const { return runProgram(batch(pairs)); }

  // What lies below the destination directory.
  Contents copied() const;
  void removeCopies() const { std::filesystem::remove_all(dir_ / "target"); }

 private:
  TempDir dir_;
};

}  // namespace test

// What every test of the program uses.
using test::Contents;
using test::CopyScene;
using test::ProgramOptions;
using test::ProgramRun;
using test::RunningProgram;
using test::runProgram;
using test::text;

}  // namespace tamrix
