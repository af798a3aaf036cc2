#include "reader/record/run_files.h"

namespace tamrix {

RunFiles::RunFiles(const std::vector<Extent*>& extents, const std::deque<FileC>& dropped)
    : extents_(extents), dropped_(dropped) {
  listed_.reserve(extents.size() + dropped.size());
  written_.reserve(extents.size());
  writtenFiles_.reserve(extents.size());
  for (std::size_t number = 0; number < extents.size() + dropped.size(); ++number) {
    const FileIdentity& identity = source(static_cast<NumberTable::Number>(number)).listed;
    // A file of many names is one, or they would all be in each other's way.
    if (findListed(identity) == NumberTable::kNone)
      listed_.add(identity.hash(), static_cast<NumberTable::Number>(number));
  }
}

NumberTable::Number RunFiles::findListed(const FileIdentity& identity) const {
  return listed_.find(identity.hash(),
                      [&](NumberTable::Number number) { return source(number).listed == identity; });
}

const FileC* RunFiles::findSource(const FileIdentity& identity) const {
  const NumberTable::Number found = findListed(identity);
  if (found != NumberTable::kNone) return &source(found);
  if (!anyOpenedElsewhere_.load(std::memory_order_acquire)) return nullptr;
  const MutexLock lock(mutex_);
  const auto opened = openedElsewhere_.find(identity);
  return opened == openedElsewhere_.end() ? nullptr : opened->second;
}

const FileC* RunFiles::findWritten(const FileIdentity& identity) const {
  const NumberTable::Number found = written_.find(
      identity.hash(), [&](NumberTable::Number n) { return writtenFiles_[n]->written == identity; });
  return found == NumberTable::kNone ? nullptr : writtenFiles_[found];
}

void RunFiles::addWritten(const FileC& file) {
  written_.add(file.written.hash(), static_cast<NumberTable::Number>(writtenFiles_.size()));
  writtenFiles_.push_back(&file);
}

void RunFiles::addOpenedSource(const FileC& file, const FileIdentity& identity) {
  const MutexLock lock(mutex_);
  openedElsewhere_.emplace(identity, &file);
  anyOpenedElsewhere_.store(true, std::memory_order_release);
}

}  // namespace tamrix
