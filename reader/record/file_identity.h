// Which file it is, whatever name leads to it.
#pragma once

#include <sys/stat.h>

#include <cstddef>

namespace tamrix {

// Device and inode. The default is no file.
struct FileIdentity {
  FileIdentity() = default;
  explicit FileIdentity(const struct stat& status) : device(status.st_dev), inode(status.st_ino) {}

  bool operator==(const FileIdentity&) const = default;
  std::size_t hash() const { return static_cast<std::size_t>(inode * 31 + device); }

  dev_t device = 0;
  ino_t inode = 0;
};

}  // namespace tamrix
