// Writes back what the writer has written, and drops it from the page cache.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>

#include "log/mutex.h"
#include "pipeline/stage/globals.h"
#include "pipeline/stage/page_cache.h"
#include "pipeline/stage/thread.h"
#include "reader/record/file_c.h"
#include "reader/record/unique_fd.h"

namespace tamrix {

// Purpose: in a long run, has each window of a destination written back as soon as it is written, and drops
// it when it is clean. A thread of its own does that, because waiting for a device must not keep the writer
// from taking the next buffer; how much may be dirty meanwhile is the system's decision, as without it.
//
// An error that write-back meets is told to whoever waits for it and to nobody else, so it fails the file, as
// a failed write does, and stops the pipeline. A file that was complete by then is taken back.
//
// Threads: start, run and join as Thread; everything else on the writer's. Lifetime: one run.
class WriteBehind : public Thread {
 public:
  // A destination under this thread's care.
  class File {
   public:
    // Opens `fd`'s file anew, for reading. A descriptor that is closed takes the process's lock on the file
    // along: whoever holds that lock keeps a reference until it is released.
    File(FileC& file, int fd, std::atomic<int>& count);
    ~File() { --count_; }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    FileC& record() const { return record_; }
    const UniqueFd& fd() const { return fd_; }

    bool isComplete = false;  // the writer's: closed and reported

   private:
    FileC& record_;
    std::atomic<int>& count_;
    const UniqueFd fd_;
  };

  struct Failure {
    std::shared_ptr<File> file;  // null: none
    int error = 0;
  };

  explicit WriteBehind(PipelineGlobals& globals) : Thread("write-behind"), globals_(globals) {}
  ~WriteBehind() override { end(); }

  // Takes the file of `fd` into care, starting the thread for the first one. Returns null when the system
  // doesn't let it, or when too many are waiting: their descriptors stay open until they are clean.
  std::shared_ptr<File> take(FileC& file, int fd);

  // `range` was written. Does not wait.
  void add(std::shared_ptr<File> file, FileRange range);

  // Whether write-back has failed; the pipeline was stopped then.
  bool hasFailed() const { return hasFailed_.load(std::memory_order_acquire); }

  // Ends the thread: the wait for a part of a window is waited for, whatever is still dirty is left to the
  // system. Returns the failure that it met, if any.
  Failure end();

  void run() override;

 private:
  static constexpr int kMostFiles = 128;
  static constexpr std::size_t kMostBegun = 8;  // windows being written back: 64 MiB keep any disk busy
  static constexpr std::int64_t kWaitPiece = 1 << 20;  // a stop waits no longer than for this to be written

  struct Window {
    std::shared_ptr<File> file;
    FileRange range{};
  };
  // What to do next; the file is null at the end.
  struct Step {
    Window window;
    bool begins = false;
  };

  Step nextStep();
  [[nodiscard]] int begin(const Window& window) const;
  [[nodiscard]] int finish(const Window& window) const;
  // Calls `sync` for one piece of the window after another. Returns 0, also when it was broken off by the
  // end, or an error number.
  template <class Sync>
  [[nodiscard]] int inPieces(FileRange range, std::int64_t piece, Sync sync) const;
  bool isEnding() const;

  PipelineGlobals& globals_;
  std::atomic<int> fileCount_{0};  // outlives the windows
  bool isStarted_ = false;         // the writer's
  std::atomic<bool> hasFailed_{false};

  mutable Mutex mutex_;
  CondVar changed_;
  std::deque<Window> windows_ TAMRIX_GUARDED_BY(mutex_);  // in the order of writing
  std::size_t begun_ TAMRIX_GUARDED_BY(mutex_) = 0;       // of them, from the front
  bool isEnding_ TAMRIX_GUARDED_BY(mutex_) = false;
  Failure failure_ TAMRIX_GUARDED_BY(mutex_);
};

// Purpose: cuts what is written to one destination into windows. Threads: the writer's. Lifetime: that of the
// open destination, so that the lock outlasts no reference to the file.
class WrittenWindows {
 public:
  // `behind` is null in a short run.
  explicit WrittenWindows(WriteBehind* behind) : behind_(behind) {}

  // The bytes of `range` were written to `fd`, the destination of `file`.
  void add(FileC& file, int fd, FileRange range) {
    if (behind_ != nullptr) addRange(file, fd, range);
  }
  // All is written; `fd` is still open.
  void end(FileC& file, int fd);
  // The destination was closed and reported.
  void noteComplete() {
    if (taken_ != nullptr) taken_->isComplete = true;
  }

 private:
  void addRange(FileC& file, int fd, FileRange range);
  void handOver(FileC& file, int fd, std::int64_t to);

  WriteBehind* const behind_;
  std::shared_ptr<WriteBehind::File> taken_;
  FileRange range_{0, 0};  // written, and not handed over
};

}  // namespace tamrix
