#include "reader/stage/source_cache.h"

namespace tamrix {

void SourceCache::begin(int fd, std::int64_t size) {
  givenTo_ = 0;
  givesBack_ = length_ == RunLength::kLong && size >= PageCache::kLeastFile && !PageCache(fd).holdsMost(size);
}

// Leaves the latest window: pages that were just read are still being put on the system's lists, and to drop
// them it would have to interrupt all cores.
void SourceCache::giveBack(int fd, std::int64_t offset) {
  const std::int64_t to = PageCache::windowStart(offset) - PageCache::kWindow;
  PageCache(fd).drop({givenTo_, to});
  givenTo_ = to;
}

void SourceCache::end(int fd) {
  if (givesBack_) PageCache(fd).drop({givenTo_, FileRange::kToEnd});
}

}  // namespace tamrix
