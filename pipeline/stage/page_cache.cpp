#include "pipeline/stage/page_cache.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

namespace tamrix {

namespace {

constexpr std::int64_t kSamples = 8;

// Of a file system, or a kind of file, that has no write-back to begin.
bool isUnsupported(int error) { return error == ESPIPE || error == EINVAL || error == ENOSYS; }

}  // namespace

RunLength PageCache::runLength(std::int64_t bytes) {
  static const std::int64_t memory = std::int64_t{sysconf(_SC_PHYS_PAGES)} * sysconf(_SC_PAGESIZE);
  return bytes >= memory / kShareOfMemory ? RunLength::kLong : RunLength::kShort;
}

int PageCache::beginWriteBack(FileRange range) const { return sync(range, SYNC_FILE_RANGE_WRITE); }

int PageCache::writeBack(FileRange range) const {
  return sync(range, SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
}

int PageCache::sync(FileRange range, unsigned flags) const {
  if (sync_file_range(fd_, range.from, range.to - range.from, flags) == 0) return 0;
  const int error = errno;
  return isUnsupported(error) ? 0 : error;
}

void PageCache::drop(FileRange range) const {
  const std::int64_t length = range.to == FileRange::kToEnd ? 0 : range.to - range.from;
  (void)posix_fadvise(fd_, range.from, length, POSIX_FADV_DONTNEED);
}

bool PageCache::holdsMost(std::int64_t size) const {
  // Mapped, but not touched, so that nothing is read.
  void* const mapped = mmap(nullptr, static_cast<std::size_t>(size), PROT_READ, MAP_PRIVATE, fd_, 0);
  if (mapped == MAP_FAILED) return false;
  const std::int64_t page = sysconf(_SC_PAGESIZE);
  std::int64_t found = 0;
  for (std::int64_t i = 0; i < kSamples; ++i) {
    const std::int64_t offset = size / kSamples * i / page * page;
    unsigned char state = 0;
    const int result = mincore(static_cast<char*>(mapped) + offset, 1, &state);
    found += result == 0 ? state & 1 : 0;
  }
  munmap(mapped, static_cast<std::size_t>(size));
  return found > kSamples / 2;
}

}  // namespace tamrix
