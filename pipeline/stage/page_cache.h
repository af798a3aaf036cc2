// Good manners towards the page cache: a long run gives back what it has used.
#pragma once

#include <cstdint>

namespace tamrix {

// Whether a run takes so much of the page cache that it has to give it back.
enum class RunLength { kShort, kLong };

// Part of a file, in bytes: from the first to before the last.
struct FileRange {
  static constexpr std::int64_t kToEnd = 0;  // as `to`: whatever the file's size
  std::int64_t from;
  std::int64_t to;
};

// Purpose: a copy uses each page once, but the page cache keeps it, and for that gives up pages that other
// processes use again and again. So a long run writes back early and drops its pages. This class has the rule
// for when, and the system calls. Only whole pages are dropped, none that is dirty or that a process has
// mapped. Files without pages of this kind (tmpfs, devices, FIFOs) take the calls and do nothing.
//
// Threads: any. Lifetime: a view of an open file, which it does not own.
class PageCache {
 public:
  // A run of less than this share of the machine's memory is short: it pushes out little, what it leaves in
  // the cache may well be used next, and it makes no call of this class but runLength.
  static constexpr std::int64_t kShareOfMemory = 8;
  // What is written back and dropped at once: long enough for the disk to work in one go, and for the calls
  // to cost nothing beside the copying. Windows begin at multiples of it, so no large page lies across two.
  static constexpr std::int64_t kWindow = 8 << 20;
  // Smaller files are left to the system: the calls would slow them down, and written back one by one they
  // would be scattered over the disk.
  static constexpr std::int64_t kLeastFile = 1 << 20;

  static constexpr std::int64_t windowStart(std::int64_t offset) { return offset / kWindow * kWindow; }

  // Of a run that copies `bytes`.
  static RunLength runLength(std::int64_t bytes);

  explicit PageCache(int fd) : fd_(fd) {}

  // Begins to write back what is dirty; waits while the device has its queue full. Returns 0, also where a
  // file system knows no such thing; or an error number, as from a failed write: no later call repeats it.
  [[nodiscard]] int beginWriteBack(FileRange range) const;
  // As beginWriteBack, and waits until all of it is written. Nothing interrupts that.
  [[nodiscard]] int writeBack(FileRange range) const;

  // Drops what is clean.
  void drop(FileRange range) const;

  // Whether most of the file, of `size` bytes, is in the cache: by a sample of its pages, without reading
  // any. Where the caller neither owns the file nor may write it, the system does not tell, and it counts as
  // there.
  bool holdsMost(std::int64_t size) const;

 private:
  [[nodiscard]] int sync(FileRange range, unsigned flags) const;

  const int fd_;
};

}  // namespace tamrix
