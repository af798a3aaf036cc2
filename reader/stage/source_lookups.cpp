#include "reader/stage/source_lookups.h"

#include <sys/stat.h>

#include <algorithm>
#include <new>
#include <utility>

#include "reader/record/file_c.h"

namespace tamrix {

namespace {

// An opening that took longer may have been waited for. On a fast file system it takes about a tenth.
constexpr std::chrono::microseconds kSlowOpening(25);

}  // namespace

void SourceLookups::lookUp(const std::string& path) {
  struct stat ignored {};
  (void)stat(path.c_str(), &ignored);
}

SourceLookups::SourceLookups(const std::vector<Extent*>& extents, const StopFlag& stop, Lookup lookup)
    : extents_(extents), lookup_(std::move(lookup)), helper_("lookup", stop, [this] { help(); }) {}

SourceLookups::~SourceLookups() {
  {
    const MutexLock lock(mutex_);
    ended_ = true;
  }
  changed_.notifyAll();
  helper_.join();
}

void SourceLookups::begin(std::size_t position) {
  if (isHelped()) offerAfter(position);
  if (state_ != State::kMeasuring) return;
  // Asking for the usage takes some calls of its own.
  if (isSlow_) before_ = ThreadUsage::now();
  begun_ = std::chrono::steady_clock::now();
}

void SourceLookups::end() {
  if (state_ != State::kMeasuring) return;
  isSlow_ = std::chrono::steady_clock::now() - begun_ > kSlowOpening;
  const std::optional<ThreadUsage> before = std::exchange(before_, std::nullopt);
  if (!isSlow_ || !before) return;
  if ((ThreadUsage::now() - *before).isMostlyAsleep()) {
    state_ = helper_.add() ? State::kHelped : State::kAlone;
  }
}

void SourceLookups::offerAfter(std::size_t position) {
  {
    const MutexLock lock(mutex_);
    if (offered_ == extents_.size() || offered_ > position + kFilesAhead / 2) return;
    offered_ = std::min(position + 1 + kFilesAhead, extents_.size());
    next_ = std::max(next_, position + 1);
  }
  changed_.notifyAll();
}

void SourceLookups::help() {
  std::string path;
  for (;;) {
    std::size_t number = 0;
    {
      const MutexLock lock(mutex_);
      while (next_ >= offered_ && !ended_) changed_.wait(mutex_);
      if (ended_) return;
      number = next_++;
    }
    try {
      extents_[number]->file->srcPath.copyTo(path);
      lookup_(path);
    } catch (const std::bad_alloc&) {
      return;  // the reader does without
    }
  }
}

}  // namespace tamrix
