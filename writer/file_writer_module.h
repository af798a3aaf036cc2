// The last stage: writes buffers into the destination files.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "pipeline/stage/stages.h"
#include "reader/record/file_c.h"
#include "reader/record/run_files.h"
#include "writer/copied_times.h"
#include "writer/open_destination.h"
#include "writer/write_behind.h"

namespace tamrix {

// Per destination: opened as it is (or made, with the directories above it), locked, compared with the other
// files of the run, cut to nothing, in sparse mode given its length, written buffer by buffer, and with its
// last buffer given the source's user attributes and times, unlocked, closed and reported by one status line.
// What can go wrong, and what becomes of the destination then:
//
//   what fails                                 destination         status line   run
//   opening or making it, or a directory       as it was           none          ends
//   locking, held by another                   as it was           none          ends
//   it is a source, or already written         as it was           none          ends
//   locking otherwise, examining, cutting it   as it was           none          ends
//     the same, made for this pair             deleted             ERROR         ends
//   giving it its length (sparse)              deleted             ERROR         ends
//   seeking, writing, closing                  deleted             ERROR         ends
//   a byte unaccounted for                     deleted             ERROR         ends
//   writing back, in a long run                deleted             ERROR         ends
//     found when the file was complete         deleted             a second one  ends
//   unlocking when complete                    left                none          ends
//   times, an attribute                        kept                WARNING       goes on
//   the run ends in mid-file                   deleted             ERROR         -
//
// What is deleted is the file that was opened, where a link leads to it as well, while it is open and locked;
// after a failed close it is locked anew. When its name belongs to another file by then, or another process
// has locked it, it is left. A device or FIFO is never deleted. Only a long run (see PageCache) looks at what
// write-back says, and only until it ends.
//
// Threads and lifetime: as Module. The records that buffers point at outlive it, as do the run's files.
class FileWriterModule : public WriterModule {
 public:
  FileWriterModule(PipelineGlobals& globals, const RunOptions& options, RunFiles& runFiles);
  ~FileWriterModule() override;

  // Writes the buffer into its file's destination. Returns 0, also for a file completed with warnings; 1
  // after a failure, having logged it at kUrgent and stopped the pipeline.
  [[nodiscard]] int emptyBuffer(BufferSlot& slot) override;

 protected:
  // Ends write-back, and discards the file at which it failed and every destination that is still open: no
  // half file stays behind.
  void finish() override;

 private:
  [[nodiscard]] int openDestination(FileC& file);
  [[nodiscard]] int fail();
  WriteBehind* writeBehind() { return writeBehind_ ? &*writeBehind_ : nullptr; }
  bool writeBackHasFailed() const { return writeBehind_ && writeBehind_->hasFailed(); }
  void discardWrittenBack(const WriteBehind::Failure& failure);

  const SparseMode sparseMode_;
  RunFiles& runFiles_;
  std::optional<WriteBehind> writeBehind_;        // only in a long run
  std::map<FilePath, OpenDestination> openList_;  // destinations being written, by source path
  OpenDestination* current_ = nullptr;            // the one that the last buffer went to
  TimesAtClose timesAtClose_;
  std::int64_t totalLength_ = 0;  // of all buffers so far
};

}  // namespace tamrix
