#include "writer/open_destination.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "log/logger.h"
#include "writer/make_subdir.h"
#include "writer/open_for_writing.h"

namespace tamrix {

namespace {

// Written in pieces of this size, so that a stop doesn't wait for a large buffer to a slow destination.
constexpr std::int64_t kWritePiece = 1 << 20;

// Ownership is not copied, so the bits that lend out the owner's rights are not either.
constexpr mode_t kCopiedModeBits = 01777;

// Sets or releases a lock on the whole file; see fcntl(2). Returns 0 or an error number.
int setLock(int fd, short type) {
  struct flock record {};
  record.l_type = type;
  record.l_whence = SEEK_SET;
  return fcntl(fd, F_SETLK, &record) == 0 ? 0 : errno;
}

bool isHeldByAnother(int error) { return error == EACCES || error == EAGAIN; }

}  // namespace

int OpenDestination::open(RunFiles& runFiles, SparseMode sparse) {
  logger->log(kDebug, msg::kFileWriterNewFile, path_);
  logger->log(kInfo, msg::kFileWriterCopy, source_, path_);
  if (create() != 0) return 1;
  if (lock() == 0 && examine(runFiles) == 0 && cut(sparse) == 0) return 0;
  discard();
  return 1;
}

int OpenDestination::create() {
  const mode_t mode = file_.fileMode & kCopiedModeBits;
  FileForWriting opened = openForWriting(path_, mode, writer_, stop_);
  if (opened.error == EINTR) return 1;
  if (opened.error != 0) {
    logger->log(kDebug, msg::kFileWriterCreateFailed);
    std::string path = path_;
    if (makeSubdir(path) != 0) {
      logger->log(kUrgent, msg::kFileWriterSubdirFailed, path);
      return 1;
    }
    opened = openForWriting(path_, mode, writer_, stop_);
  }
  if (opened.error == EINTR) return 1;
  if (opened.error != 0) {
    logger->log(kUrgent, msg::kFileWriterSecondCreateFailed, std::strerror(opened.error));
    tellName();
    return 1;
  }
  fd_ = std::move(opened.fd);
  isMade_ = opened.isMade;
  isUnderWay_ = true;
  return 0;
}

int OpenDestination::lock() {
  const int error = setLock(fd_.get(), F_WRLCK);
  if (error == 0) return 0;
  logger->log(kUrgent, msg::kFileWriterLockFailed, path_, std::strerror(error));
  // The file belongs to whoever holds the lock, even if it was made here.
  if (isHeldByAnother(error)) isMade_ = false;
  return 1;
}

// Finds out which file was opened, whatever its name is, and whether it may be written.
int OpenDestination::examine(RunFiles& runFiles) {
  struct stat status {};
  if (fstat(fd_.get(), &status) != 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kFileWriterExamineFailed, path_, std::strerror(error));
    return 1;
  }
  file_.written = FileIdentity(status);
  sizeBefore_ = S_ISREG(status.st_mode) ? status.st_size : 0;
  // A file that was just made is neither, even if it has the inode of a source that is gone.
  if (!isMade_) {
    if (const FileC* other = runFiles.findSource(file_.written)) {
      logger->log(kUrgent, msg::kFileWriterIsSource, source_, path_, other->srcPath.text(),
                  other->dstPath.text());
      return 1;
    }
    if (const FileC* other = runFiles.findWritten(file_.written)) {
      logger->log(kUrgent, msg::kFileWriterIsWritten, source_, path_, other->srcPath.text(),
                  other->dstPath.text());
      return 1;
    }
  }
  runFiles.addWritten(file_);
  return 0;
}

int OpenDestination::cut(SparseMode sparse) {
  isTouched_ = sizeBefore_ == 0 || ftruncate(fd_.get(), 0) == 0;
  if (isTouched_ && (sparse == SparseMode::kOff || ftruncate(fd_.get(), file_.fileSize) == 0)) return 0;
  logger->log(kUrgent, msg::kFileWriterTruncateFailed);
  tellName();
  return 1;
}

int OpenDestination::write(const BufferSlot& slot) {
  const auto offset = static_cast<std::int64_t>(slot.offset);
  // Kept: the first buffer of every file says that it seeks to 0.
  if (offset == 0 || offset != writeOffset_) {
    logger->log(kDebug, msg::kFileWriterDiscontinuity, offset);
    if (const int error = seekTo(offset); error != 0) {
      logger->log(kUrgent, msg::kFileWriterSeekFailed, offset, std::strerror(error));
      tellName();
      return 1;
    }
  }
  const Writing written = writeData(slot.data, slot.length);
  if (written.error != 0) {
    if (written.error == EINTR) return 1;
    tellFailed(written.error);
    return 1;
  }
  logger->log(kDebug, msg::kFileWriterWrote, static_cast<std::int32_t>(written.bytes),
              static_cast<std::int32_t>(slot.bufferId));
  // A short write is not tried again: the bytes that it left out are missing when the file is completed.
  bytesWritten_ += written.bytes;
  writeOffset_ = offset + written.bytes;
  windows_.add(file_, fd_.get(), {offset, writeOffset_});
  return 0;
}

// Writes on until `size` is reached, the file takes less than it was given, or a stop comes.
OpenDestination::Writing OpenDestination::writeData(const char* data, std::int64_t size) const {
  Writing writing;
  for (;;) {
    const std::int64_t piece = std::min(size - writing.bytes, kWritePiece);
    const Thread::MayWait mayWait(writer_);
    const ssize_t n = ::write(fd_.get(), data + writing.bytes, static_cast<std::size_t>(piece));
    const int error = n < 0 ? errno : 0;
    if (n > 0) writing.bytes += n;
    if (error != 0 && error != EINTR) {
      writing.error = error;
    } else if (writing.bytes < size && stop_.isSet()) {
      writing.error = EINTR;
    } else if (error == EINTR || (n == piece && writing.bytes < size)) {
      continue;
    }
    return writing;
  }
}

// Leaves a hole: the file has its full length since it was created. The write offset stays where it is, so
// that the next data buffer seeks.
int OpenDestination::skipZeros(const BufferSlot& slot) {
  if (slot.endOfFile != 0) {
    logger->log(kDebug, msg::kFileWriterSparseEnd, slot.length);
    if (const int error = seekTo(static_cast<std::int64_t>(slot.offset) + slot.length); error != 0) {
      // Kept: names the buffer's offset, not the position sought.
      logger->log(kUrgent, msg::kFileWriterSparseSeekFailed, static_cast<long long>(slot.offset),
                  std::strerror(error));
      tellName();
      return 1;
    }
  }
  bytesWritten_ += slot.length;
  return 0;
}

// Returns 0 or an error number.
// Kept: the result is looked at as a 32-bit number, so a position of the form k * 2^32 + 4294967295 counts as
// failed.
int OpenDestination::seekTo(std::int64_t position) const {
  return static_cast<std::int32_t>(lseek(fd_.get(), position, SEEK_SET)) == -1 ? errno : 0;
}

int OpenDestination::complete(TimesAtClose& timesAtClose) {
  if (bytesWritten_ != file_.fileSize) {
    logger->log(kUrgent, msg::kFileWriterIncomplete, path_, bytesWritten_, file_.fileSize);
    discard();
    return 1;
  }
  const std::vector<const char*> refused = copyAttributes();
  CopiedTimes times(fd_.get(), file_, timesAtClose);
  windows_.end(file_, fd_.get());
  if (release() != 0) return 1;

  windows_.noteComplete();
  const int timesError = times.finish();
  if (timesError != 0) logger->log(kWarning, msg::kFileWriterTimesFailed, std::strerror(timesError));
  for (const char* name : refused) logger->log(kWarning, msg::kFileWriterXattrFailed, name);
  if (timesError == 0 && refused.empty() && !file_.changedWhileRead) {
    logger->log(kProgress, msg::kFileWriterStatusSuccess, source_, path_);
  } else {
    logger->log(kProgress, msg::kFileWriterStatusWarning, source_, path_);
  }
  return 0;
}

// Returns the names of those that were refused.
std::vector<const char*> OpenDestination::copyAttributes() const {
  std::vector<const char*> refused;
  for (const ExtendedAttr& attr : file_.eaList) {
    if (fsetxattr(fd_.get(), attr.name, attr.value, attr.valueLength, 0) != 0) refused.push_back(attr.name);
  }
  return refused;
}

int OpenDestination::release() {
  // Every byte is written: whatever fails now but the close itself, the file stays.
  isUnderWay_ = false;
  if (unlock() != 0) {
    (void)fd_.close();
    return 1;
  }
  logger->log(kProgress, msg::kFileWriterEndOfFile, file_.fileName);
  const int error = fd_.close();
  if (error == 0) return 0;
  logger->log(kUrgent, msg::kFileWriterCloseFailed, std::strerror(error));
  tellName();
  reportAndRemove();
  (void)fd_.close();
  return 1;
}

int OpenDestination::unlock() const {
  const int error = setLock(fd_.get(), F_UNLCK);
  if (error == 0) return 0;
  logger->log(kUrgent, msg::kFileWriterUnlockFailed, file_.fileName, std::strerror(error));
  return 1;
}

void OpenDestination::tellFailed(int error) const {
  logger->log(kUrgent, msg::kFileWriterFailed, std::strerror(error));
  tellName();
}

void OpenDestination::takeBack() {
  reportAndRemove();
  (void)fd_.close();
}

void OpenDestination::discard() {
  if (!isUnderWay_) return;
  isUnderWay_ = false;
  if (isMade_ || isTouched_) reportAndRemove();
  if (isTouched_) (void)unlock();  // a failure is told; closing the descriptor releases the lock anyway
  (void)fd_.close();
}

// For the messages that don't say which file they are about.
void OpenDestination::tellName() const { logger->log(kUrgent, msg::kFileWriterFailedFile, path_); }

void OpenDestination::reportAndRemove() {
  logger->log(kInfo, msg::kFileWriterStatusError, source_, path_);
  if (const char* const reason = remove()) {
    logger->log(kInfo, msg::kFileWriterDeleteFailed, path_, reason);
  } else {
    logger->log(kInfo, msg::kFileWriterDeleted, path_);
  }
}

// Removes the name that the destination's path leads to, also through a link, if it is still a name of the
// file that was opened. A device or FIFO was not made by the copy and stays. Returns null, or why it is left.
const char* OpenDestination::remove() {
  std::array<char, PATH_MAX> real;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by realpath
  struct stat status {};
  if (file_.written == FileIdentity() && fstat(fd_.get(), &status) == 0) file_.written = FileIdentity(status);
  if (realpath(path_.c_str(), real.data()) == nullptr || lstat(real.data(), &status) != 0) {
    return std::strerror(errno);
  }
  if (!S_ISREG(status.st_mode)) return std::strerror(EPERM);
  if (file_.written != FileIdentity(status)) return "the name is another file's by now";
  if (!fd_.isOpen()) {
    // The lock went with the descriptor. If another process has locked the file since, it is theirs.
    fd_ = UniqueFd(::open(real.data(), O_WRONLY | O_CLOEXEC | O_NONBLOCK));
    if (fd_.isOpen() && isHeldByAnother(setLock(fd_.get(), F_WRLCK))) return std::strerror(EAGAIN);
  }
  return unlink(real.data()) == 0 ? nullptr : std::strerror(errno);
}

}  // namespace tamrix
