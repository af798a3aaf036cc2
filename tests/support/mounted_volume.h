// A tape volume for a test: a directory, seen through the tape_volume program.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/child_process.h"
#include "tests/support/temp_dir.h"

namespace tamrix::test {

// What the drive of a volume had to do.
struct TapeAccount {
  std::vector<std::string> reads;  // the files, each time that one was read in one go
  int locates = 0;
  long long bytes = 0;
  double seconds = -1;  // modelled; -1: there was no account
};

// Mounted while it lives, or until unmount. One thread.
class MountedVolume {
 public:
  struct File {
    std::string path;
    std::string content;
    char partition;
    long long block;
  };
  // `options` are those of tape_volume.
  explicit MountedVolume(const std::vector<File>& files, const std::vector<std::string>& options = {});
  ~MountedVolume() { unmount(); }
  MountedVolume(const MountedVolume&) = delete;
  MountedVolume& operator=(const MountedVolume&) = delete;

  // False where mounting is refused.
  bool isMounted() const { return served_.has_value(); }
  const std::string& path() const { return mountPoint_; }
  std::string operator/(std::string_view name) const { return mountPoint_ + "/" + std::string(name); }
  // The file behind the one of the volume.
  std::string backing(std::string_view name) const { return dir_ / ("tape/" + std::string(name)); }

  // Returns what the drive had to do until now.
  TapeAccount unmount();

 private:
  TempDir dir_;
  const std::string mountPoint_ = dir_ / "volume";
  std::optional<model::ChildProcess> served_;
};

}  // namespace tamrix::test
