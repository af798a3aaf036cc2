// The modelled tape volume, mounted for a benchmark.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/child_process.h"

namespace tamrix::bench {

// Where a benchmark's end status says that mounting is refused.
inline constexpr int kMountRefused = 3;

// A volume that is mounted while it lives. The kernel keeps nothing of its files. One thread.
class MountedVolume {
 public:
  // Shows DIRECTORY/tape at DIRECTORY/volume, laid out as DIRECTORY/layout says; see
  // model/tape_volume_settings.h for that and for `options`. Throws std::system_error.
  MountedVolume(const std::string& program, std::string directory, const std::vector<std::string>& options);

  ~MountedVolume();
  MountedVolume(const MountedVolume&) = delete;
  MountedVolume& operator=(const MountedVolume&) = delete;

  // False where mounting is refused.
  bool isMounted() const { return isMounted_; }
  std::string path() const { return directory_ + "/volume"; }

  // Unmounts it and returns the figures of its account's line "total", the seconds last. Throws
  // std::runtime_error when there is none.
  std::vector<double> finish();

 private:
  void unmount();

  const std::string directory_;
  std::optional<model::ChildProcess> served_;
  bool isMounted_ = false;
};

}  // namespace tamrix::bench
