#include "reader/stage/open_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <string>
#include <utility>

#include "log/logger.h"
#include "pipeline/ring/buffer_q.h"
#include "pipeline/stage/open_file.h"
#include "reader/list/source_attributes.h"

namespace tamrix {

namespace {

// Read in pieces of this size, so that a stop doesn't wait for a large buffer from a slow source.
constexpr std::int64_t kReadPiece = 1 << 20;

// What a slot can stand for.
constexpr std::int64_t kLongestPiece = std::numeric_limits<decltype(BufferSlot::length)>::max();

// A path that leads to the open file, whatever has become of its name.
std::string pathOf(const UniqueFd& fd) { return "/proc/self/fd/" + std::to_string(fd.get()); }

bool sameTime(const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

// Whether the file still has the size and modification time that its record tells.
bool isAsRecorded(const FileC& file, const struct stat& status) {
  return status.st_size == file.fileSize && sameTime(status.st_mtim, file.modifyTime);
}

}  // namespace

int OpenSource::open(FileC& file, HoleSearch holes) {
  file_ = &file;
  file.srcPath.copyTo(path_);
  bytesRead_ = 0;
  offset_ = 0;
  if (openDescriptor() != 0) return 1;
  struct stat status {};
  if (fstat(fd_.get(), &status) != 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kFileReaderExamineFailed, path_, std::strerror(error));
    fd_ = UniqueFd();
    return 1;
  }
  if (!S_ISREG(status.st_mode)) {
    logger->log(kUrgent, msg::kFileReaderNotRegular, path_);
    fd_ = UniqueFd();
    return 1;
  }
  if (FileIdentity(status) != file.listed || !isAsRecorded(file, status)) follow(status);
  cache_.begin(fd_.get(), file.fileSize);
  mayHaveHoles_ = holes == HoleSearch::kOn && allocatedBytes(status) < file.fileSize;
  return 0;
}

int OpenSource::openDescriptor() {
  logger->log(kProgress, msg::kFileReaderOpenFile, path_);
  // Not blocking: what was a regular file when listed may be a FIFO by now.
  OpenedFile opened = openFile(path_, O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0, reader_, stop_);
  if (opened.error == EWOULDBLOCK) opened = openWaiting(path_, O_RDONLY | O_CLOEXEC, reader_, stop_);
  fd_ = std::move(opened.fd);
  if (opened.error == 0) return 0;
  // What a stop broke off is no failure of the file.
  if (opened.error != EINTR)
    logger->log(kUrgent, msg::kFileReaderOpenFailed, path_, std::strerror(opened.error));
  return 1;
}

// Makes the record tell of the file that was found.
void OpenSource::follow(const struct stat& status) {
  FileC& file = *file_;
  logger->log(kWarning, msg::kFileReaderChangedSinceListed, path_);
  const FileIdentity found(status);
  if (runFiles_ != nullptr && found != file.listed) runFiles_->addOpenedSource(file, found);
  file.fileSize = status.st_size;
  file.accessTime = status.st_atim;
  file.modifyTime = status.st_mtim;
  file.fileMode = status.st_mode;
  file.eaList.clear();
  SourceAttributes attributes;
  attributes.read(pathOf(fd_).c_str());
  attributes.collect(file, path_);
}

std::optional<SourcePiece> OpenSource::read(char* data, std::int64_t wanted, std::int32_t capacity) {
  SourcePiece piece{holeAhead(wanted, capacity), true};
  if (piece.length == 0 && wanted > 0) {
    const Reading reading = readData(data, std::min<std::int64_t>(wanted, capacity));
    piece.length = reading.bytes;
    if (reading.bytes == 0) {
      if (reading.error == 0) {
        logger->log(kUrgent, msg::kFileReaderEndedEarly, path_, bytesRead_, file_->fileSize);
      } else if (reading.error != EINTR) {  // a stop is no failure of the file
        logger->log(kUrgent, msg::kFileReaderReadFailed, std::strerror(reading.error));
        logger->log(kUrgent, msg::kFileReaderReadFailedFile, path_);
      }
      fd_ = UniqueFd();
      return std::nullopt;
    }
    piece.isHole = false;
  } else if (wanted == 0) {
    piece.isHole = false;
  }
  bytesRead_ += piece.length;
  offset_ += piece.length;
  cache_.hasRead(fd_.get(), offset_);
  return piece;
}

// Reads on until `size` is reached, the file gives less than was asked for, or a stop comes.
OpenSource::Reading OpenSource::readData(char* data, std::int64_t size) const {
  Reading reading;
  while (reading.bytes < size) {
    const auto piece = static_cast<std::size_t>(std::min(size - reading.bytes, kReadPiece));
    char* const to = data + reading.bytes;
    const Thread::MayWait mayWait(reader_);
    // Looking for holes moves the file's position.
    const ssize_t n =
        mayHaveHoles_ ? pread(fd_.get(), to, piece, offset_ + reading.bytes) : ::read(fd_.get(), to, piece);
    const int error = errno;
    const bool isStopped = stop_.isSet();
    if (n < 0 && error == EINTR && !isStopped) continue;
    if (n < 0) reading.error = error;
    if (n > 0) reading.bytes += n;
    if (n < static_cast<ssize_t>(piece) || isStopped) break;
  }
  return reading;
}

std::int64_t OpenSource::holeAhead(std::int64_t wanted, std::int32_t capacity) const {
  if (!mayHaveHoles_) return 0;
  std::int64_t hole = wanted;
  if (const off_t data = lseek(fd_.get(), offset_, SEEK_DATA); data >= 0) {
    hole = std::min<std::int64_t>(hole, data - offset_);
  } else {
    // No data up to the end. That a file was cut short is to be found out by reading it.
    struct stat status {};
    if (errno != ENXIO || fstat(fd_.get(), &status) != 0 || status.st_size < file_->fileSize) return 0;
  }
  if (hole == wanted && hole <= kLongestPiece) return hole;
  return std::min(hole, kLongestPiece) / capacity * capacity;
}

int OpenSource::seek(std::int64_t offset) {
  if (lseek(fd_.get(), offset, SEEK_SET) < 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kFileReaderSeekFailed, offset, std::strerror(error));
    logger->log(kUrgent, msg::kFileReaderSeekFailedFile, path_);
    fd_ = UniqueFd();
    return 1;
  }
  offset_ = offset;
  return 0;
}

int OpenSource::close() {
  struct stat status {};
  // Of an empty file, nothing was read that could have changed.
  if (file_->fileSize > 0) {
    if (fstat(fd_.get(), &status) != 0) {
      const int error = errno;
      logger->log(kUrgent, msg::kFileReaderExamineFailed, path_, std::strerror(error));
      fd_ = UniqueFd();
      return 1;
    }
    if (!isAsRecorded(*file_, status)) {
      logger->log(kWarning, msg::kFileReaderChangedWhileRead, path_);
      file_->changedWhileRead = true;
    }
  }
  cache_.end(fd_.get());
  const int error = fd_.close();
  if (error == 0) return 0;
  logger->log(kUrgent, msg::kFileReaderCloseFailed, std::strerror(error));
  logger->log(kUrgent, msg::kFileReaderCloseFailedFile, path_);
  return 1;
}

}  // namespace tamrix
