#include "reader/stage/file_reader_module.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "log/logger.h"

namespace tamrix {

namespace {

// A source that is read at less than this is no memory; drives, disks and networks are well below. Measured
// over so many bytes, or so much time, whichever is reached first.
constexpr double kMemorySpeed = 1e9;  // bytes per second
constexpr std::int64_t kSampleBytes = 16 << 20;
constexpr std::chrono::milliseconds kSampleTime(20);

constexpr std::int64_t kStatBlock = 512;  // the unit of st_blocks
// What a slot can stand for.
constexpr std::int64_t kLongestPiece = std::numeric_limits<decltype(BufferSlot::length)>::max();

}  // namespace

FileReaderModule::FileReaderModule(PipelineGlobals& globals, const RunOptions& options, const CopyList& list)
    : ReaderModule(globals, options), copyList_(list) {
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
  if ((!file.isOpen && openFile(file) != 0) || readPiece(slot, file, extent) != 0) {
    return options_.audit == AuditMode::kFiles ? passOver(slot, file) : fail();
  }

  slot.endOfFile = 0;
  if (file.bytesRead == file.fileSize) {
    logger->log(kProgress, msg::kFileReaderFileCompleted, file.fileName);
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

int FileReaderModule::openFile(FileC& file) {
  logger->log(kProgress, msg::kFileReaderOpenFile, file.srcPath);
  // Not blocking: what was a regular file when listed may be a FIFO by now.
  file.fd = open(file.srcPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (file.fd < 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kFileReaderOpenFailed, file.srcPath, std::strerror(error));
    return 1;
  }
  file.isOpen = true;
  struct stat status {};
  file.mayHaveHoles = globals_.sparseMode != 0 && fstat(file.fd, &status) == 0 && S_ISREG(status.st_mode) &&
                      status.st_blocks * kStatBlock < file.fileSize;
  return 0;
}

int FileReaderModule::readPiece(BufferSlot& slot, FileC& file, Extent& extent) {
  const std::int64_t hole = holeAhead(file, extent, slot.capacity);
  slot.hole = hole > 0 ? 1 : 0;
  const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(extent.byteCount, slot.capacity));
  const ssize_t n = hole > 0 ? hole : readData(slot, file, wanted);
  const int error = errno;
  if (n < 0 || (n == 0 && wanted != 0)) {
    if (n < 0) {
      logger->log(kUrgent, msg::kFileReaderReadFailed, std::strerror(error));
    } else {
      logger->log(kUrgent, msg::kFileReaderEndedEarly, file.srcPath, file.bytesRead, file.fileSize);
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

ssize_t FileReaderModule::readData(const BufferSlot& slot, const FileC& file, std::size_t wanted) {
  if (wanted == 0) return 0;
  const auto start = std::chrono::steady_clock::now();
  // Looking for holes moves the file's position.
  const ssize_t n = file.mayHaveHoles ? pread(file.fd, slot.data, wanted, file.readOffset)
                                      : read(file.fd, slot.data, wanted);
  if (!sourceIsSlow_) {
    const int error = errno;
    accountRead(n, std::chrono::steady_clock::now() - start);
    errno = error;
  }
  return n;
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
  return 1;
}

// Makes the file's position the one at which `extent` starts. Only a file with several extents needs a seek.
int FileReaderModule::continueAt(FileC& file, const Extent& extent) {
  if (file.readOffset == extent.offset) return 0;
  logger->log(kDebug, msg::kFileReaderDiscontinuity, file.readOffset, extent.offset, file.fileName);
  if (lseek(file.fd, extent.offset, SEEK_SET) < 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kFileReaderSeekFailed, extent.offset, std::strerror(error));
    return 1;
  }
  file.readOffset = extent.offset;
  return 0;
}

int FileReaderModule::passOver(BufferSlot& slot, FileC& file) {
  slot.file = &file;
  slot.length = -1;
  slot.endOfFile = 0;
  slot.endOfData = ++position_ == copyList_.extents().size() ? 1 : 0;
  return 0;
}

int FileReaderModule::fail() {
  globals_.stopPipeline();
  return 1;
}

}  // namespace tamrix
