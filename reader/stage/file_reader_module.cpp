#include "reader/stage/file_reader_module.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "log/logger.h"
#include "reader/list/source_attributes.h"

namespace tamrix {

namespace {

// A source that is read at less than this is no memory; drives, disks and networks are well below. Measured
// over so many bytes, or so much time, whichever is reached first.
constexpr double kMemorySpeed = 1e9;  // bytes per second
constexpr std::int64_t kSampleBytes = 16 << 20;
constexpr std::chrono::milliseconds kSampleTime(20);

// Read in pieces of this size, so that a stop doesn't wait for a large buffer from a slow source.
constexpr std::size_t kReadPiece = 1 << 20;

constexpr std::int64_t kStatBlock = 512;  // the unit of st_blocks
// What a slot can stand for.
constexpr std::int64_t kLongestPiece = std::numeric_limits<decltype(BufferSlot::length)>::max();

bool sameTime(const struct timespec& a, const struct timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

}  // namespace

FileReaderModule::FileReaderModule(PipelineGlobals& globals, const RunOptions& options, const CopyList& list,
                                   RunFiles* runFiles)
    : ReaderModule(globals, options), copyList_(list), runFiles_(runFiles) {
  logger->log(kDebug, msg::kFileReaderConstructorGlobals);
}

FileReaderModule::~FileReaderModule() {
  logger->log(kDebug, msg::kFileReaderDestructor);
  // A run that was stopped may have ended in the middle of a file.
  if (position_ < copyList_.extents().size()) {
    const FileC& file = *copyList_.extents()[position_]->file;
    if (file.isOpen) close(file.fd);
  }
}

int FileReaderModule::fillBuffer(BufferSlot& slot) {
  Extent& extent = *copyList_.extents()[position_];
  FileC& file = *extent.file;
  logger->log(kDebug, msg::kFileReaderExtent, extent.startBlock, extent.byteCount, file.fileName);

  slot.startOfFile = file.isOpen ? 0 : 1;
  if (!file.isOpen && openFile(file, extent) != 0) return fail();
  if (readPiece(slot, file, extent) != 0) return fail();

  slot.endOfFile = 0;
  if (file.bytesRead == file.fileSize) {
    logger->log(kProgress, msg::kFileReaderFileCompleted, file.fileName);
    checkUnchanged(file);
    if (closeFile(file) != 0) return fail();
    slot.endOfFile = 1;
  }
  if (extent.byteCount > 0) return 0;

  logger->log(kDebug, msg::kFileReaderExtentComplete);
  if (++position_ == copyList_.extents().size()) {
    logger->log(kDebug, msg::kFileReaderEndOfData);
    slot.endOfData = 1;
    return 0;
  }
  const Extent& next = *copyList_.extents()[position_];
  return continueAt(*next.file, next) == 0 ? 0 : fail();
}

int FileReaderModule::openFile(FileC& file, Extent& extent) {
  logger->log(kProgress, msg::kFileReaderOpenFile, file.srcPath);
  if (const int error = openPath(file); error != 0) {
    // What a stop broke off is no failure of the file.
    if (error != EINTR) logger->log(kUrgent, msg::kFileReaderOpenFailed, file.srcPath, std::strerror(error));
    return 1;
  }
  file.isOpen = true;
  struct stat status {};
  if (fstat(file.fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    logger->log(kUrgent, msg::kFileReaderNotRegular, file.srcPath);
    (void)closeFile(file);
    return 1;
  }
  if (FileIdentity(status) != file.listed || status.st_size != file.fileSize ||
      !sameTime(status.st_mtim, file.modifyTime)) {
    followChange(file, extent, status);
  }
  file.mayHaveHoles = globals_.sparseMode != 0 && status.st_blocks * kStatBlock < file.fileSize;
  return 0;
}

// Returns 0, or the error number; EINTR only for a stop.
int FileReaderModule::openPath(FileC& file) {
  // Not blocking: what was a regular file when listed may be a FIFO by now.
  int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
  for (;;) {
    const MayWait mayWait(*this);
    file.fd = open(file.srcPath.c_str(), flags);
    if (file.fd >= 0) return 0;
    const int error = errno;
    struct stat status {};
    if (error == EWOULDBLOCK && (flags & O_NONBLOCK) != 0 && stat(file.srcPath.c_str(), &status) == 0 &&
        S_ISREG(status.st_mode)) {
      // Another process holds a lease on the file; the system asks for it while this one waits.
      flags &= ~O_NONBLOCK;
    } else if (error != EINTR || globals_.stopExecution.isSet()) {
      return error;
    }
  }
}

// Makes the record tell of the file that was opened. No other stage has seen a buffer of it yet.
void FileReaderModule::followChange(FileC& file, Extent& extent, const struct stat& status) {
  logger->log(kWarning, msg::kFileReaderChangedSinceListed, file.srcPath);
  if (runFiles_ != nullptr) runFiles_->addOpenedSource(file, FileIdentity(status));
  extent.byteCount += status.st_size - file.fileSize;
  file.fileSize = status.st_size;
  file.accessTime = status.st_atim;
  file.modifyTime = status.st_mtim;
  file.fileMode = status.st_mode;
  file.eaList = EaList();
  SourceAttributes attributes;
  attributes.read(file.srcPath.c_str());
  attributes.collect(file);
}

void FileReaderModule::checkUnchanged(FileC& file) {
  struct stat status {};
  if (fstat(file.fd, &status) == 0 && status.st_size == file.fileSize &&
      sameTime(status.st_mtim, file.modifyTime)) {
    return;
  }
  file.changedWhileRead = true;
  logger->log(kWarning, msg::kFileReaderChangedWhileRead, file.srcPath);
}

int FileReaderModule::readPiece(BufferSlot& slot, FileC& file, Extent& extent) {
  const std::int64_t hole = holeAhead(file, extent, slot.capacity);
  slot.hole = hole > 0 ? 1 : 0;
  const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(extent.byteCount, slot.capacity));
  const Reading reading = hole > 0 ? Reading{hole, 0} : readData(slot, file, wanted);
  const std::int64_t n = reading.bytes;
  if (n == 0 && wanted != 0) {
    // What a stop broke off is no failure of the file.
    if (reading.error == 0) {
      logger->log(kUrgent, msg::kFileReaderEndedEarly, file.srcPath, file.bytesRead, file.fileSize);
    } else if (reading.error != EINTR) {
      logger->log(kUrgent, msg::kFileReaderReadFailed, std::strerror(reading.error));
      logger->log(kUrgent, msg::kFileReaderReadFailedFile, file.srcPath);
    }
    close(file.fd);
    file.isOpen = false;
    return 1;
  }
  totalRead_ += n;
  slot.offset = static_cast<std::uint64_t>(file.readOffset);
  file.bytesRead += n;
  file.readOffset += n;
  extent.byteCount -= n;
  logger->log(kDebug, msg::kFileReaderRead, static_cast<std::int32_t>(n), totalRead_,
              static_cast<std::int32_t>(slot.bufferId));
  slot.length = static_cast<std::int32_t>(n);
  slot.endOfData = 0;
  slot.sparseBlock = 0;
  slot.file = &file;
  return 0;
}

// Reads on until the buffer is full, the source gives less than was asked for, or a stop comes.
FileReaderModule::Reading FileReaderModule::readData(const BufferSlot& slot, const FileC& file,
                                                     std::size_t wanted) {
  const auto start = std::chrono::steady_clock::now();
  Reading reading;
  for (std::size_t done = 0; done < wanted;) {
    const std::size_t piece = std::min(wanted - done, kReadPiece);
    const ssize_t n = readAt(file, slot.data + done, piece, file.readOffset + static_cast<off_t>(done));
    const int error = errno;
    const bool stopped = globals_.stopExecution.isSet();
    if (n < 0 && error == EINTR && !stopped) continue;
    if (n < 0) reading.error = error;
    if (n > 0) done += static_cast<std::size_t>(n);
    reading.bytes = static_cast<std::int64_t>(done);
    if (n < static_cast<ssize_t>(piece) || (stopped && done < wanted)) break;
  }
  if (!sourceIsSlow_) accountRead(reading.bytes, std::chrono::steady_clock::now() - start);
  return reading;
}

ssize_t FileReaderModule::readAt(const FileC& file, char* data, std::size_t size, off_t offset) {
  const MayWait mayWait(*this);
  // Looking for holes moves the file's position.
  return file.mayHaveHoles ? pread(file.fd, data, size, offset) : read(file.fd, data, size);
}

std::int64_t FileReaderModule::holeAhead(const FileC& file, const Extent& extent, std::int32_t capacity) {
  if (!file.mayHaveHoles) return 0;
  std::int64_t hole = extent.byteCount;
  if (const off_t data = lseek(file.fd, file.readOffset, SEEK_DATA); data >= 0) {
    hole = std::min<std::int64_t>(hole, data - file.readOffset);
  } else {
    // No data up to the end. That a file was cut short is to be found out by reading it.
    struct stat status {};
    if (errno != ENXIO || fstat(file.fd, &status) != 0 || status.st_size < file.fileSize) return 0;
  }
  // The log's lines about buffers are to be the same as for data.
  const std::int64_t most = logger->level() <= kProgress ? capacity : kLongestPiece;
  const bool isRest = hole == extent.byteCount && hole <= most;
  return isRest ? hole : std::min(hole, most) / capacity * capacity;
}

void FileReaderModule::accountRead(std::int64_t bytes, std::chrono::steady_clock::duration time) {
  sampleBytes_ += bytes;
  sampleTime_ += time;
  if (sampleBytes_ < kSampleBytes && sampleTime_ < kSampleTime) return;
  const double seconds = std::chrono::duration<double>(sampleTime_).count();
  if (static_cast<double>(sampleBytes_) < seconds * kMemorySpeed) {
    sourceIsSlow_ = true;
    ring().allowLongLead();
  }
  sampleBytes_ = 0;
  sampleTime_ = {};
}

int FileReaderModule::closeFile(FileC& file) {
  file.isOpen = false;
  if (close(file.fd) == 0) return 0;
  const int error = errno;
  logger->log(kUrgent, msg::kFileReaderCloseFailed, std::strerror(error));
  logger->log(kUrgent, msg::kFileReaderCloseFailedFile, file.srcPath);
  return 1;
}

// Makes the file's position the one at which `extent` starts. Only a file with several extents needs a seek.
int FileReaderModule::continueAt(FileC& file, const Extent& extent) {
  if (file.readOffset == extent.offset) return 0;
  logger->log(kDebug, msg::kFileReaderDiscontinuity, file.readOffset, extent.offset, file.fileName);
  if (lseek(file.fd, extent.offset, SEEK_SET) < 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kFileReaderSeekFailed, extent.offset, std::strerror(error));
    logger->log(kUrgent, msg::kFileReaderSeekFailedFile, file.srcPath);
    return 1;
  }
  file.readOffset = extent.offset;
  return 0;
}

int FileReaderModule::fail() {
  globals_.stopPipeline();
  return 1;
}

}  // namespace tamrix
