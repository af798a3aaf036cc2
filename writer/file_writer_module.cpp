#include "writer/file_writer_module.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "log/logger.h"
#include "writer/make_subdir.h"

namespace tamrix {

namespace {

// Ownership is not copied, so the bits that lend out the owner's rights are not either.
constexpr mode_t kCopiedModeBits = 01777;

// A lock record over the whole file; see fcntl(2).
struct flock wholeFile(short type) {
  struct flock record {};
  record.l_type = type;
  record.l_whence = SEEK_SET;
  return record;
}

timeval microseconds(const timespec& time) { return {time.tv_sec, time.tv_nsec / 1000}; }

// Positions the file. Returns 0, or -1 with errno set.
// Kept: the result is looked at as a 32-bit number, so a position of the form k * 2^32 + 4294967295 counts as
// failed.
int seekTo(int fd, std::int64_t position) {
  return static_cast<std::int32_t>(lseek(fd, position, SEEK_SET)) == -1 ? -1 : 0;
}

// Removes the file that `path` leads to: behind a link as well, since that is where the half file is. A
// device or FIFO was not made by the copy and stays. Returns 0, or -1 with errno set.
int removeFile(const std::string& path) {
  std::array<char, PATH_MAX> real;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by realpath
  struct stat status {};
  if (realpath(path.c_str(), real.data()) == nullptr || lstat(real.data(), &status) != 0) return -1;
  if (S_ISREG(status.st_mode)) return unlink(real.data());
  errno = EPERM;
  return -1;
}

}  // namespace

FileWriterModule::FileWriterModule(PipelineGlobals& globals, const RunOptions& options)
    : WriterModule(globals, options), sparseMode_(globals.sparseMode != 0) {
  logger->log(kDebug, msg::kFileWriterConstructorProps);
}

FileWriterModule::~FileWriterModule() { logger->log(kDebug, msg::kFileWriterDestructor); }

int FileWriterModule::emptyBuffer(BufferSlot& slot) {
  totalLength_ += slot.length;
  logger->log(kProgress, msg::kFileWriterBuffer, slot.file->srcPath);
  if (slot.file != current_) {
    const auto open = openList_.find(slot.file->srcPath);
    if (open != openList_.end()) {
      current_ = open->second;
    } else if (openDestination(*slot.file) != 0) {
      return fail();
    }
  }
  FileC& file = *current_;
  logger->log(kDebug, msg::kFileWriterPosition, static_cast<unsigned long long>(file.writeOffset),
              static_cast<long long>(slot.offset));
  if (writeBuffer(slot, file) != 0) {
    discardDestination(file);
    return fail();
  }
  if (slot.endOfFile == 0) return 0;
  return completeFile(file) == 0 ? 0 : fail();
}

int FileWriterModule::openDestination(FileC& file) {
  logger->log(kDebug, msg::kFileWriterNewFile, file.dstPath);
  file.bytesWritten = 0;
  file.writeOffset = 0;
  logger->log(kInfo, msg::kFileWriterCopy, file.srcPath, file.dstPath);
  // Listed before it is made: what could fail in listing it must not leave an unlisted file behind.
  const auto entry = openList_.emplace(file.srcPath, &file).first;
  if (createFile(file) != 0 || lockFile(file) != 0 || sizeFile(file) != 0) {
    openList_.erase(entry);
    return 1;
  }
  current_ = &file;
  return 0;
}

int FileWriterModule::createFile(FileC& file) {
  // Not blocking: opening a FIFO that nobody reads fails instead of waiting. Regular files don't care.
  constexpr int kFlags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK;
  const mode_t mode = file.fileMode & kCopiedModeBits;
  file.dstFd = open(file.dstPath.c_str(), kFlags, mode);
  if (file.dstFd >= 0) return 0;

  logger->log(kDebug, msg::kFileWriterCreateFailed);
  std::string path = file.dstPath;
  if (makeSubdir(path) != 0) {
    logger->log(kUrgent, msg::kFileWriterSubdirFailed, path);
    return 1;
  }
  file.dstFd = open(file.dstPath.c_str(), kFlags, mode);
  if (file.dstFd >= 0) return 0;
  const int error = errno;
  logger->log(kUrgent, msg::kFileWriterSecondCreateFailed, std::strerror(error));
  return 1;
}

int FileWriterModule::lockFile(FileC& file) {
  struct flock record = wholeFile(F_WRLCK);
  if (fcntl(file.dstFd, F_SETLK, &record) == 0) return 0;
  const int error = errno;
  logger->log(kUrgent, msg::kFileWriterLockFailed, file.dstPath, std::strerror(error));
  close(file.dstFd);
  // A file that another process holds is not ours to delete.
  if (error != EACCES && error != EAGAIN) reportAndDelete(file);
  return 1;
}

// In sparse mode, gives the file its length at once, so that a tail of zeros can stay a hole.
int FileWriterModule::sizeFile(const FileC& file) const {
  if (!sparseMode_ || ftruncate(file.dstFd, file.fileSize) == 0) return 0;
  (void)unlockFile(file);  // a failure is told; closing the descriptor releases the lock anyway
  logger->log(kUrgent, msg::kFileWriterTruncateFailed);
  close(file.dstFd);
  reportAndDelete(file);
  return 1;
}

int FileWriterModule::writeBuffer(const BufferSlot& slot, FileC& file) const {
  return sparseMode_ && slot.sparseBlock != 0 ? skipZeros(slot, file) : writeData(slot, file);
}

// Leaves a hole: the file has its full length since it was created. The write offset stays where it is, so
// that the next data buffer seeks.
int FileWriterModule::skipZeros(const BufferSlot& slot, FileC& file) const {
  if (slot.endOfFile != 0) {
    logger->log(kDebug, msg::kFileWriterSparseEnd, slot.length);
    if (seekTo(file.dstFd, static_cast<std::int64_t>(slot.offset) + slot.length) != 0) {
      const int error = errno;
      // Kept: names the buffer's offset, not the position sought.
      logger->log(kUrgent, msg::kFileWriterSparseSeekFailed, static_cast<long long>(slot.offset),
                  std::strerror(error));
      return 1;
    }
  }
  file.bytesWritten += slot.length;
  return 0;
}

int FileWriterModule::writeData(const BufferSlot& slot, FileC& file) const {
  const auto offset = static_cast<std::int64_t>(slot.offset);
  // Kept: the first buffer of every file says that it seeks to 0.
  if (offset == 0 || offset != file.writeOffset) {
    logger->log(kDebug, msg::kFileWriterDiscontinuity, offset);
    if (seekTo(file.dstFd, offset) != 0) {
      const int error = errno;
      logger->log(kUrgent, msg::kFileWriterSeekFailed, offset, std::strerror(error));
      return 1;
    }
  }
  const ssize_t written = write(file.dstFd, slot.data, static_cast<std::size_t>(slot.length));
  if (written < 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kFileWriterFailed, std::strerror(error));
    return 1;
  }
  logger->log(kDebug, msg::kFileWriterWrote, static_cast<std::int32_t>(written),
              static_cast<std::int32_t>(slot.bufferId));
  // A short write is not tried again: the bytes that it left out are missing when the file is completed.
  file.bytesWritten += written;
  file.writeOffset = offset + written;
  return 0;
}

int FileWriterModule::completeFile(FileC& file) {
  if (file.bytesWritten != file.fileSize) {
    logger->log(kUrgent, msg::kFileWriterIncomplete, file.dstPath, file.bytesWritten, file.fileSize);
    discardDestination(file);
    return 1;
  }
  copyAttributes(file);
  openList_.erase(file.srcPath);
  current_ = nullptr;
  if (closeCompleted(file) != 0) return 1;

  const bool timesKept = copyTimes(file) == 0;
  for (const char* name : refusedAttributes_) logger->log(kWarning, msg::kFileWriterXattrFailed, name);
  if (timesKept && refusedAttributes_.empty()) {
    logger->log(kProgress, msg::kFileWriterStatusSuccess, file.srcPath, file.dstPath);
  } else {
    logger->log(kProgress, msg::kFileWriterStatusWarning, file.srcPath, file.dstPath);
  }
  return 0;
}

int FileWriterModule::closeCompleted(FileC& file) {
  if (unlockFile(file) != 0) {
    close(file.dstFd);
    return 1;
  }
  logger->log(kProgress, msg::kFileWriterEndOfFile, file.fileName);
  if (close(file.dstFd) != 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kFileWriterCloseFailed, std::strerror(error));
    reportAndDelete(file);
    return 1;
  }
  return 0;
}

// By path and after the close: a file system may set the modification time when it is told of the last close.
int FileWriterModule::copyTimes(const FileC& file) const {
  const timeval times[2] = {microseconds(file.accessTime), microseconds(file.modifyTime)};
  if (utimes(file.dstPath.c_str(), times) == 0) return 0;
  const int error = errno;
  logger->log(kWarning, msg::kFileWriterTimesFailed, std::strerror(error));
  return 1;
}

// While the file is open: by path, each attribute would cost another look-up. What was refused is told when
// the rest of the file is done.
void FileWriterModule::copyAttributes(const FileC& file) {
  refusedAttributes_.clear();
  for (const ExtendedAttr& attr : file.eaList) {
    if (fsetxattr(file.dstFd, attr.name, attr.value, attr.valueLength, 0) != 0) {
      refusedAttributes_.push_back(attr.name);
    }
  }
}

void FileWriterModule::discardDestination(FileC& file) {
  // The run stops whether or not the lock could be released.
  (void)unlockFile(file);
  globals_.stopPipeline();
  close(file.dstFd);
  openList_.erase(file.srcPath);
  if (current_ == &file) current_ = nullptr;
  reportAndDelete(file);
}

void FileWriterModule::reportAndDelete(const FileC& file) const {
  logger->log(kInfo, msg::kFileWriterStatusError, file.srcPath, file.dstPath);
  if (removeFile(file.dstPath) == 0) {
    logger->log(kInfo, msg::kFileWriterDeleted, file.dstPath);
  } else {
    const int error = errno;
    logger->log(kInfo, msg::kFileWriterDeleteFailed, file.dstPath, std::strerror(error));
  }
}

int FileWriterModule::unlockFile(const FileC& file) const {
  struct flock record = wholeFile(F_UNLCK);
  if (fcntl(file.dstFd, F_SETLK, &record) == 0) return 0;
  const int error = errno;
  logger->log(kUrgent, msg::kFileWriterUnlockFailed, file.fileName, std::strerror(error));
  return 1;
}

void FileWriterModule::finish() {
  while (!openList_.empty()) discardDestination(*openList_.begin()->second);
}

int FileWriterModule::fail() {
  globals_.stopPipeline();
  return 1;
}

}  // namespace tamrix
