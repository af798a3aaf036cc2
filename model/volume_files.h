// The files of a modelled tape volume: those of a directory, with the attributes of a tape volume.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "model/stream.h"
#include "model/tape_account.h"
#include "model/tape_volume_settings.h"

namespace tamrix::model {

// As the file system interface wants results: not negative, or a negated errno.
template <class Result>
int outcome(Result result) {
  return result < 0 ? -errno : static_cast<int>(result);
}

// Serves the operations of a file system, results as outcome() gives them. All paths are those on the volume,
// "/" is its root; handles stand for open files. One thread.
class VolumeFiles {
 public:
  using Position = Account::Position;
  struct OpenFile {
    int fd;
    std::string path;          // on the volume
    const Position* position;  // none: not on tape
  };

  VolumeFiles(TapeVolumeSettings settings, std::string directory);

  // Where the directory has the file.
  std::string backing(const char* path) const { return directory_ + path; }

  int open(const char* path, int flags, mode_t mode, std::uint64_t& handle);
  // REQUIRES: the handle is that of an open file.
  OpenFile& openFile(std::uint64_t handle) { return open_.at(handle); }
  int release(std::uint64_t handle);

  int read(const OpenFile& file, char* to, std::size_t size, std::int64_t offset);
  int write(const OpenFile& file, const char* from, std::size_t size, std::int64_t offset);
  // What a stream's files would take if they were kept.
  void correctBlocks(struct stat* status) const;

  // As getxattr(2) and listxattr(2).
  int getAttribute(const char* path, const std::string& name, char* to, std::size_t size) const;
  int listAttributes(const char* path, char* to, std::size_t size) const;
  bool isVirtual(std::string_view attribute) const;

  // The account.
  std::string finish() { return stream_ ? stream_->finish() : account_.finish(); }

 private:
  std::int64_t goodBytes(const Position& position, std::int64_t offset) const;
  std::map<std::string, std::string> virtualAttributes(const char* path) const;

  const TapeVolumeSettings settings_;
  const std::string directory_;
  std::map<std::string, Position> layout_;
  std::unordered_map<std::uint64_t, OpenFile> open_;  // by handle; the kernel may unmount before it releases
  std::uint64_t lastHandle_ = 0;
  Account account_{*settings_.generation, settings_.blockSize, settings_.delay};
  std::optional<Stream> stream_;
};

}  // namespace tamrix::model
