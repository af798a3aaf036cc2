// The first stage: reads the files of the copy list, in its order, into buffers.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "pipeline/stage/stages.h"
#include "reader/list/copy_list.h"
#include "reader/record/run_files.h"

namespace tamrix {

// A buffer carries data of one file only. A file is opened for its first buffer and closed with its last, so
// at most one source is open. What is copied is what is there when it is opened: the record of a file that
// has changed since it was listed follows it, with a warning. A file is read up to its size at that moment;
// one that ends earlier is a read error, one that changes while it is read costs a warning. In sparse mode,
// what the file system tells to be a hole is not read: one slot stands for all of its whole buffers, or for
// each where the log tells of buffers.
//
// Threads and lifetime: as Module.
class FileReaderModule : public ReaderModule {
 public:
  // `list` is complete and must outlive the stage, as must `runFiles`, which are told of a source that is
  // another file than the one listed; null where nothing is written.
  FileReaderModule(PipelineGlobals& globals, const RunOptions& options, const CopyList& list,
                   RunFiles* runFiles = nullptr);
  ~FileReaderModule() override;

  // Reads the next piece of the current file, at most the slot's capacity unless it is a hole, and sets the
  // slot's startOfFile, length, offset, endOfFile, endOfData, sparseBlock, hole and file. Returns 0; or 1
  // after logging what can't be opened, read, sought or closed at kUrgent and stopping the pipeline.
  [[nodiscard]] int fillBuffer(BufferSlot& slot) override;

 private:
  // What came of filling a buffer: bytes, or none and an error number (EINTR: a stop), or neither at the end
  // of the source.
  struct Reading {
    std::int64_t bytes = 0;
    int error = 0;
  };

  int openFile(FileC& file, Extent& extent);
  int openPath(FileC& file);
  void followChange(FileC& file, Extent& extent, const struct stat& status);
  static void checkUnchanged(FileC& file);
  int readPiece(BufferSlot& slot, FileC& file, Extent& extent);
  Reading readData(const BufferSlot& slot, const FileC& file, std::size_t wanted);
  ssize_t readAt(const FileC& file, char* data, std::size_t size, off_t offset);
  int closeFile(FileC& file);
  int continueAt(FileC& file, const Extent& extent);
  // How many of the extent's next bytes lie in a hole and go into the next slot, as far as the file system
  // tells; in whole buffers of `capacity` bytes, unless the extent ends in the hole.
  static std::int64_t holeAhead(const FileC& file, const Extent& extent, std::int32_t capacity);
  // Stops the pipeline and returns 1; for the failing paths, which have logged why.
  int fail();

  // Takes note of a read, and lets the ring fill once the source proves slower than memory.
  void accountRead(std::int64_t bytes, std::chrono::steady_clock::duration time);

  const CopyList& copyList_;
  RunFiles* const runFiles_;
  std::size_t position_ = 0;  // in the copy list: the extent being read
  std::int64_t totalRead_ = 0;
  bool sourceIsSlow_ = false;
  std::int64_t sampleBytes_ = 0;  // of the speed being measured
  std::chrono::steady_clock::duration sampleTime_{};
};

}  // namespace tamrix
