// A tape volume for a test: a directory, seen through the tape_volume program.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/temp_dir.h"

namespace tamrix::test {

// What the drive of a volume had to do, in order.
struct TapeAccount {
  struct Read {
    long long bytes = 0;  // in one go
    std::string path;     // on the volume
  };
  std::vector<Read> reads;
  int locates = 0;
  long long bytes = 0;
  double seconds = -1;  // modelled; -1: there was no account
};

// Mounted while it lives, or until unmount. Where mounting is refused it isn't mounted and tells why. One
// thread.
class MountedVolume {
 public:
  struct File {
    std::string_view path;
    std::string content;
    char partition = 0;  // 0: no position on tape
    long long block = 0;
  };
  // `options` are those of tape_volume.
  explicit MountedVolume(const std::vector<File>& files, std::vector<std::string> options = {});
  ~MountedVolume() { unmount(); }
  MountedVolume(const MountedVolume&) = delete;
  MountedVolume& operator=(const MountedVolume&) = delete;

  bool isMounted() const { return pid_ > 0; }
  // Why it isn't mounted; empty when a failure of the test has told.
  const std::string& reason() const { return reason_; }

  const std::string& path() const { return mountPoint_; }
  std::string operator/(std::string_view name) const { return mountPoint_ + "/" + std::string(name); }
  // The file behind the one of the volume.
  std::string backing(std::string_view name) const { return dir_ / ("tape/" + std::string(name)); }

  // Returns what the drive had to do until now.
  TapeAccount unmount();

 private:
  void start(std::vector<std::string> words);
  void waitUntilMounted(int from);
  TapeAccount readAccount() const;

  TempDir dir_;
  const std::string mountPoint_ = dir_ / "volume";
  const std::string accountFile_ = dir_ / "account";
  pid_t pid_ = -1;
  std::string reason_;
};

}  // namespace tamrix::test
