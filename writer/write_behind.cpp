#include "writer/write_behind.h"

#include <fcntl.h>

#include <algorithm>
#include <string>
#include <utility>

namespace tamrix {

namespace {

// Not a duplicate of `fd`: one that is open for writing would keep others from executing the finished file.
UniqueFd openAnew(int fd) {
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  return UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
}

}  // namespace

WriteBehind::File::File(FileC& file, int fd, std::atomic<int>& count)
    : record_(file), count_(count), fd_(openAnew(fd)) {
  ++count_;
}

std::shared_ptr<WriteBehind::File> WriteBehind::take(FileC& file, int fd) {
  if (fileCount_.load() >= kMostFiles) return nullptr;
  if (!isStarted_ && start() != 0) return nullptr;
  isStarted_ = true;
  auto taken = std::make_shared<File>(file, fd, fileCount_);
  return taken->fd().isOpen() ? taken : nullptr;
}

void WriteBehind::add(std::shared_ptr<File> file, FileRange range) {
  const MutexLock held(mutex_);
  windows_.push_back({std::move(file), range});
  changed_.notifyAll();
}

WriteBehind::Failure WriteBehind::end() {
  {
    const MutexLock held(mutex_);
    isEnding_ = true;
    changed_.notifyAll();
  }
  join();
  const MutexLock held(mutex_);
  return failure_;
}

bool WriteBehind::isEnding() const {
  const MutexLock held(mutex_);
  return isEnding_;
}

void WriteBehind::run() {
  for (;;) {
    const Step step = nextStep();
    if (step.window.file == nullptr) return;
    const int error = step.begins ? begin(step.window) : finish(step.window);
    if (error == 0) continue;
    {
      const MutexLock held(mutex_);
      failure_ = {step.window.file, error};
    }
    hasFailed_.store(true, std::memory_order_release);
    globals_.stopPipeline();
    return;
  }
}

// Begins what was written as long as the device has room, and finishes the oldest otherwise.
WriteBehind::Step WriteBehind::nextStep() {
  const MutexLock held(mutex_);
  while (windows_.empty() && !isEnding_) changed_.wait(mutex_);
  if (isEnding_) return {};
  if (begun_ < std::min(windows_.size(), kMostBegun)) return {windows_[begun_++], true};
  Step step{std::move(windows_.front()), false};
  windows_.pop_front();
  --begun_;
  return step;
}

template <class Sync>
int WriteBehind::inPieces(FileRange range, std::int64_t piece, Sync sync) const {
  int error = 0;
  for (std::int64_t from = range.from; error == 0 && from < range.to && !isEnding(); from += piece) {
    error = sync(FileRange{from, std::min(from + piece, range.to)});
  }
  return error;
}

// A large buffer makes a large window.
int WriteBehind::begin(const Window& window) const {
  const PageCache cache(window.file->fd().get());
  return inPieces(window.range, PageCache::kWindow,
                  [&](FileRange range) { return cache.beginWriteBack(range); });
}

int WriteBehind::finish(const Window& window) const {
  const PageCache cache(window.file->fd().get());
  const int error =
      inPieces(window.range, kWaitPiece, [&](FileRange range) { return cache.writeBack(range); });
  if (error == 0) cache.drop(window.range);
  return error;
}

void WrittenWindows::addRange(FileC& file, int fd, FileRange range) {
  // A short hole is part of a window, a long one lies between two.
  if (range.from < range_.from || range.from > range_.from + PageCache::kWindow) {
    handOver(file, fd, range_.to);
    range_.from = PageCache::windowStart(range.from);
  }
  range_.to = range.to;
  const std::int64_t full = PageCache::windowStart(range.to);
  if (full > range_.from) handOver(file, fd, full);
}

void WrittenWindows::end(FileC& file, int fd) {
  if (range_.to >= PageCache::kLeastFile) handOver(file, fd, range_.to);
}

void WrittenWindows::handOver(FileC& file, int fd, std::int64_t to) {
  if (behind_ == nullptr || to <= range_.from) return;
  if (taken_ == nullptr) taken_ = behind_->take(file, fd);
  if (taken_ != nullptr) behind_->add(taken_, {range_.from, to});
  range_.from = to;
}

}  // namespace tamrix
