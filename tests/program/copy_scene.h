// What a test of the program copies: a source and a destination directory, and a batch file.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/program_run.h"
#include "tests/support/temp_dir.h"

namespace tamrix::test {

class CopyScene {
 public:
  // Below `parent`, with both directories made.
  explicit CopyScene(const std::filesystem::path& parent = std::filesystem::temp_directory_path());

  const TempDir& dir() const { return dir_; }
  std::string source(std::string_view name) const { return dir_ / ("source/" + std::string(name)); }
  std::string destination(std::string_view name) const { return dir_ / ("target/" + std::string(name)); }
  std::string addSource(std::string_view name, std::string_view content = "new") const {
    return dir_.file("source/" + std::string(name), content);
  }
  std::string addDestination(std::string_view name, std::string_view content = "old") const {
    return dir_.file("target/" + std::string(name), content);
  }
  // A sparse source of `size` bytes.
  std::string addLargeSource(std::string_view name, long long size) const;

  // Copies every file of the source directory, then whatever `more` says.
  std::vector<std::string> args(const std::vector<std::string>& more = {}) const;
  ProgramRun copy(const std::vector<std::string>& more = {}, const ProgramOptions& options = {}) const {
    return runProgram(args(more), options);
  }

  // Writes a batch file with these parameters and absolute source and destination paths (of a source
  // with a wildcard in its name, the destination's name says nothing); returns the options
  // to copy what it says.
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  std::vector<std::string> batch(const Pairs& pairs, const std::string& params = "") const;
  ProgramRun copyBatch(const Pairs& pairs, const ProgramOptions& options = {}) const {
    return runProgram(batch(pairs), options);
  }

  // The content of every file below the destination directory, by path below it; directories are "<dir>".
  std::map<std::string, std::string> copied() const;

 private:
  TempDir dir_;
};

}  // namespace tamrix::test
