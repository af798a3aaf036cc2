// What a source leaves in the page cache.
#pragma once

#include <cstdint>

#include "pipeline/stage/page_cache.h"

namespace tamrix {

// Purpose: in a long run, drops what was read from a source, some windows behind the reading. A file that was
// mostly in the cache before is another process's concern and left alone, as are small ones. Serves file
// after file.
//
// Threads: the reader's. Lifetime: the reader stage's.
class SourceCache {
 public:
  explicit SourceCache(RunLength length) : length_(length) {}

  // The file was opened, and nothing of it read.
  void begin(int fd, std::int64_t size);
  // It was read up to `offset`.
  void hasRead(int fd, std::int64_t offset) {
    if (givesBack_ && offset >= givenTo_ + 2 * PageCache::kWindow) giveBack(fd, offset);
  }
  // It was read to its end and is about to be closed.
  void end(int fd);

 private:
  void giveBack(int fd, std::int64_t offset);

  const RunLength length_;
  bool givesBack_ = false;
  std::int64_t givenTo_ = 0;  // everything before this was dropped
};

}  // namespace tamrix
