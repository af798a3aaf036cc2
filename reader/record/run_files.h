// The files that a run reads and those that it has written: what a destination must not be.
#pragma once

#include <atomic>
#include <deque>
#include <unordered_map>
#include <vector>

#include "log/mutex.h"
#include "reader/record/extent.h"
#include "reader/record/file_c.h"
#include "reader/record/file_identity.h"
#include "reader/record/number_table.h"

namespace tamrix {

// Purpose: answers for a file that was opened to be written, by device and inode, whether it is a source of
// the run or a destination that the run has opened before. About 40 bytes per file, all taken by the
// constructor. Threads: see each operation. Lifetime: a run's; extents and records outlive it.
class RunFiles {
 public:
  // `extents` are the finished copy list, `dropped` the records of pairs that were left out of it, whose
  // sources must not be overwritten either. Throws std::bad_alloc.
  RunFiles(const std::vector<Extent*>& extents, const std::deque<FileC>& dropped);

  // The file that is read from `identity`, as listed or as it was opened; null when there is none. Any
  // thread.
  const FileC* findSource(const FileIdentity& identity) const;
  // The file that was written to `identity`; null when there is none. The writer's thread.
  const FileC* findWritten(const FileIdentity& identity) const;

  // Notes that `file` is written to `file.written`. Allocates nothing. The writer's thread.
  void addWritten(const FileC& file);
  // Notes that `file` turned out to be read from another file than the one listed. Throws std::bad_alloc. Any
  // thread.
  void addOpenedSource(const FileC& file, const FileIdentity& identity);

 private:
  struct Hash {
    std::size_t operator()(const FileIdentity& identity) const { return identity.hash(); }
  };
  const FileC& source(NumberTable::Number number) const {
    return number < extents_.size() ? *extents_[number]->file : dropped_[number - extents_.size()];
  }
  NumberTable::Number findListed(const FileIdentity& identity) const;

  const std::vector<Extent*>& extents_;
  const std::deque<FileC>& dropped_;
  NumberTable listed_;   // by FileC::listed, the first place in extents_ or, behind them, in dropped_
  NumberTable written_;  // by FileC::written, places in writtenFiles_
  std::vector<const FileC*> writtenFiles_;

  std::atomic<bool> anyOpenedElsewhere_ = false;  // spares nearly every run the mutex
  mutable Mutex mutex_;
  std::unordered_map<FileIdentity, const FileC*, Hash> openedElsewhere_ TAMRIX_GUARDED_BY(mutex_);
};

}  // namespace tamrix
