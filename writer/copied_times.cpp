#include "writer/copied_times.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace tamrix {

namespace {

// Local file systems, which set the modification time when data is written, not later.
bool isLocal(decltype(statfs::f_type) type) {
  constexpr decltype(statfs::f_type) kXfs = 0x58465342;  // has no name in the system's headers
  return type == EXT4_SUPER_MAGIC || type == kXfs || type == BTRFS_SUPER_MAGIC || type == TMPFS_MAGIC ||
         type == F2FS_SUPER_MAGIC;
}

using FdPath = std::array<char, 32>;
FdPath pathOf(int fd) {
  FdPath path{};
  (void)std::snprintf(path.data(), path.size(), "/proc/self/fd/%d", fd);
  return path;
}

std::array<timespec, 2> timesOf(const FileC& file) {
  return {copiedTime(file.accessTime), copiedTime(file.modifyTime)};
}

}  // namespace

timespec copiedTime(timespec time) {
  constexpr long kNanosecondsPerMicrosecond = 1000;
  time.tv_nsec -= time.tv_nsec % kNanosecondsPerMicrosecond;
  return time;
}

bool TimesAtClose::mayChange(int fd, dev_t device) {
  if (!isKnown_ || device != device_) {
    struct statfs status {};
    mayChange_ = fstatfs(fd, &status) != 0 || !isLocal(status.f_type);
    device_ = device;
    isKnown_ = true;
  }
  return mayChange_;
}

CopiedTimes::CopiedTimes(int fd, const FileC& file, TimesAtClose& atClose) : file_(file) {
  if (atClose.mayChange(fd, file.written.device)) {
    // With O_PATH, so that the file does not count as open.
    itself_ = UniqueFd(open(pathOf(fd).data(), O_PATH | O_CLOEXEC));
    if (!itself_.isOpen()) error_ = errno;
  } else if (futimens(fd, timesOf(file).data()) != 0) {
    error_ = errno;
  }
}

int CopiedTimes::finish() {
  if (!itself_.isOpen()) return error_;
  return utimensat(AT_FDCWD, pathOf(itself_.get()).data(), timesOf(file_).data(), 0) == 0 ? 0 : errno;
}

}  // namespace tamrix
