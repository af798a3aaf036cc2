// One destination file, from its opening until it is complete or given up.
#pragma once

#include <cstdint>
#include <vector>

#include "pipeline/ring/buffer_q.h"
#include "pipeline/ring/stop_flag.h"
#include "pipeline/stage/thread.h"
#include "reader/record/file_c.h"
#include "reader/record/run_files.h"
#include "reader/record/unique_fd.h"
#include "writer/copied_times.h"
#include "writer/write_behind.h"

namespace tamrix {

enum class SparseMode { kOff, kOn };

// Purpose: whatever a destination's name means when it is opened, no file but the pair's own is changed. The
// file is opened as it is, locked, compared with the sources of the run and with what the run has written,
// and only then cut to nothing. What is removed later is the file that was opened, or nothing. Each outcome
// has one way out: complete() for a copy, discard() for one that failed. An open() that fails has called
// discard() itself.
//
// Every failure is logged where it happens, at kUrgent unless its effect is a warning. An operation that a
// stop interrupts is no failure of the file and is not logged.
// Threads: the writer's. Lifetime: from a file's first buffer to its last; the record outlives it.
class OpenDestination {
 public:
  // Opens nothing yet. `writer` is the thread that opens and writes; `stop` interrupts it; `behind` writes
  // back, or is null. All must outlive this.
  OpenDestination(FileC& file, Thread& writer, const StopFlag& stop, WriteBehind* behind)
      : file_(file),
        source_(file.srcPath.text()),
        path_(file.dstPath.text()),
        writer_(writer),
        stop_(stop),
        windows_(behind) {}
  OpenDestination(const OpenDestination&) = delete;
  OpenDestination& operator=(const OpenDestination&) = delete;

  const FileC& file() const { return file_; }
  std::int64_t writeOffset() const { return writeOffset_; }

  // Opens the file, with the directories above it, and makes it empty; in sparse mode it gets its length at
  // once, so that zeros at its end can stay a hole. Returns 0, or 1 with nothing left open.
  [[nodiscard]] int open(RunFiles& runFiles, SparseMode sparse);

  // Takes the buffer's bytes. Return 0; or 1, also after a stop. A write that comes back short is noticed at
  // the end of the file.
  [[nodiscard]] int write(const BufferSlot& slot);
  [[nodiscard]] int skipZeros(const BufferSlot& slot);

  // Checks that no byte is missing, gives the copy the attributes and times of its source, unlocks and closes
  // it, and reports it. Returns 0, also with warnings; or 1 when it is not complete, or could not be unlocked
  // or closed. A file that is incomplete is discarded by then.
  [[nodiscard]] int complete(TimesAtClose& timesAtClose);

  // Says that writing has failed.
  void tellFailed(int error) const;

  // Closes, reports and removes a file that is not complete; a file that was there before and has not been
  // changed stays. Does nothing when no file is under way.
  void discard();

  // The same for a file that was completed by another object of this class, which this one has not opened. It
  // is left when its name belongs to another file by then, or another process has locked it.
  void takeBack();

 private:
  // What came of writing: how many bytes, and the error number with which it ended, EINTR for a stop.
  struct Writing {
    std::int64_t bytes = 0;
    int error = 0;
  };

  [[nodiscard]] int create();
  [[nodiscard]] int lock();
  [[nodiscard]] int examine(RunFiles& runFiles);
  [[nodiscard]] int cut(SparseMode sparse);
  [[nodiscard]] int seekTo(std::int64_t position) const;
  Writing writeData(const char* data, std::int64_t size) const;
  void tellName() const;
  std::vector<const char*> copyAttributes() const;
  [[nodiscard]] int release();
  [[nodiscard]] int unlock() const;
  void reportAndRemove();
  const char* remove();

  FileC& file_;
  // Paths, made before anything is opened: to remove or report a file must not need memory.
  const std::string source_;
  const std::string path_;  // the destination's
  Thread& writer_;
  const StopFlag& stop_;
  WrittenWindows windows_;
  UniqueFd fd_;
  bool isMade_ = false;      // for this pair: there was no such file
  bool isTouched_ = false;   // what was there is lost
  bool isUnderWay_ = false;  // opened, and neither complete nor given up
  std::int64_t sizeBefore_ = 0;
  std::int64_t bytesWritten_ = 0;  // bytes accounted for: written, or skipped as zeros
  std::int64_t writeOffset_ = 0;   // behind the last written byte
};

}  // namespace tamrix
