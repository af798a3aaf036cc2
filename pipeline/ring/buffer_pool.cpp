// Making, sizing and freeing the ring's buffers.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <new>

#include "config/run_options.h"
#include "log/logger.h"
#include "pipeline/ring/buffer_q.h"
#include "pipeline/ring/size_text.h"

namespace tamrix {

namespace {

constexpr std::int64_t kTotalLimit = std::int64_t{4} << 30;
constexpr std::int64_t kBufferLimit = kTotalLimit / 4;
constexpr std::int64_t kManyBuffers = 1048576;  // a ring of more is announced as slow, never refused

}  // namespace

int BufferQ::convertSize(const std::string& text, std::int64_t& bytes) {
  const SizeText size = parseSize(text);
  switch (size.status) {
    case SizeText::Status::kNotNumeric:
      logger->log(kUrgent, msg::kBufferSizeNotNumeric, std::string(size.offender));
      logger->hint(msg::kBufferHintSizes);
      return -1;
    case SizeText::Status::kUnknownUnit:
      logger->log(kUrgent, msg::kBufferSizeUnknownUnit, std::string(size.offender));
      logger->hint(msg::kBufferHintSizes);
      return -1;
    case SizeText::Status::kOk:
      break;
  }
  bytes = size.bytes;
  return 0;
}

int BufferQ::createQ(int moduleCount, const StopFlag& stop, const RunOptions& options) {
  stop_ = &stop;
  if (readSizes(options) != 0 || allocateSlots() != 0) return 1;

  const bool inFile = !options.bufferFile.empty();
  mode_ = inFile ? Mode::kBufferFile : Mode::kMemory;
  if (inFile) {
    logger->log(kDebug, msg::kBufferFileMode);
  } else {
    logger->log(kDebug, msg::kBufferMemoryMode);
  }

  moduleCount_ = moduleCount;
  logger->log(kDebug, msg::kBufferInitLocks);
  {
    const MutexLock lock(mutex_);
    position(0).head = 0;
    position(0).tail = static_cast<std::uint32_t>(bufferCount_ - 1);
    lead_ = ReaderLead(bufferSize_, bufferCount_);
  }
  return inFile ? setupFile(options.bufferFile) : setupMem();
}

// The order of the checks decides which fault a user is told first.
int BufferQ::readSizes(const RunOptions& options) {
  std::int64_t total = 0;
  if (convertSize(options.totalBufferSize, total) != 0) return 1;
  if (total < 1) {
    logger->log(kUrgent, msg::kBufferTotalNotPositive, total);
    return 1;
  }
  if (total > kTotalLimit) {
    logger->log(kUrgent, msg::kBufferTotalTooLarge, total);
    return 1;
  }
  std::int64_t size = 0;
  if (convertSize(options.bufferSize, size) != 0) return 1;
  if (size < 1) {
    logger->log(kUrgent, msg::kBufferSizeNotPositive, size);
    return 1;
  }
  if (size > kBufferLimit) {
    logger->log(kUrgent, msg::kBufferSizeTooLarge, size);
    return 1;
  }
  bufferSize_ = static_cast<std::int32_t>(size);
  totalSize_ = total;
  if (size > total) {
    logger->log(kUrgent, msg::kBufferSizeOverTotal, bufferSize_, total);
    return 1;
  }
  logger->log(kProgress, msg::kBufferSizes, bufferSize_, total);
  return 0;
}

int BufferQ::allocateSlots() {
  const std::int64_t count = totalSize_ / bufferSize_;  // the remainder is not used
  bufferCount_ =
      static_cast<std::int32_t>(std::min<std::int64_t>(count, std::numeric_limits<std::int32_t>::max()));
  if (count <= kManyBuffers) {
    logger->log(kDebug, msg::kBufferCreate, bufferCount_);
  } else {
    logger->log(kInfo, msg::kBufferManyBuffers, bufferCount_);
  }
  // Zeroed by the system, page by page as slots come into use.
  if (count == bufferCount_) {
    slots_.reset(static_cast<BufferSlot*>(std::calloc(static_cast<std::size_t>(count), sizeof(BufferSlot))));
  }
  if (slots_ == nullptr) {
    logger->log(kUrgent, msg::kBufferCannotCreate, bufferCount_, std::strerror(ENOMEM));
    return 1;
  }
  return 0;
}

int BufferQ::setupMem() {
  logger->log(kDebug, msg::kBufferSetupMem);
  const std::size_t bytes = static_cast<std::size_t>(bufferCount_) * static_cast<std::size_t>(bufferSize_);
  void* const memory =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED || !reserveFreeList()) {
    if (memory != MAP_FAILED) munmap(memory, bytes);
    logger->log(kUrgent, msg::kBufferNoMemory);
    return 1;
  }
  memory_ = static_cast<char*>(memory);
  logger->log(kDebug, msg::kBufferSetupMemDone);
  return 0;
}

// Makes room to note every buffer as free, so that nothing is allocated while stages run.
bool BufferQ::reserveFreeList() {
  const MutexLock lock(mutex_);
  try {
    freeBuffers_.reserve(static_cast<std::size_t>(bufferCount_));
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// Makes the buffer file anew, an existing one is somebody else's, with its room reserved: a full disk is told
// here and not by a signal in the middle of the copy.
int BufferQ::setupFile(const std::string& path) {
  const auto page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  segmentSize_ = (static_cast<std::uint64_t>(bufferSize_) + page - 1) / page * page;
  bufferFd_ = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (bufferFd_ < 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kBufferFileFailed, path, std::strerror(error));
    return 1;
  }
  bufferFile_ = path;
  const auto bytes = static_cast<off_t>(static_cast<std::uint64_t>(bufferCount_) * segmentSize_);
  if (const int error = posix_fallocate(bufferFd_, 0, bytes); error != 0) {
    logger->log(kUrgent, msg::kBufferFileFailed, path, std::strerror(error));
    return 1;
  }
  return 0;
}

void BufferQ::teardownMem() {
  logger->log(kDebug, msg::kBufferTeardownMem);
  if (memory_ != nullptr) {
    munmap(memory_, static_cast<std::size_t>(bufferCount_) * static_cast<std::size_t>(bufferSize_));
  }
  memory_ = nullptr;
}

BufferQ::~BufferQ() {
  if (mode_ == Mode::kMemory) {
    logger->log(kDebug, msg::kBufferFree);
    teardownMem();
  }
  if (bufferFd_ >= 0) {
    close(bufferFd_);
    unlink(bufferFile_.c_str());
  }
}

}  // namespace tamrix
