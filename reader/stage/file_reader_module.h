// The first stage: reads the files of the copy list, in its order, into buffers.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "pipeline/stage/stages.h"
#include "reader/list/copy_list.h"

namespace tamrix {

// A buffer carries data of one file only. A file is opened for its first buffer and closed with its last, so
// at most one source is open. Files are read up to the size that was listed: a file that grew is cut there,
// one that ends earlier is a read error. In sparse mode, what the file system tells to be a hole is not read:
// one slot stands for all of its whole buffers, or for each where the log tells of buffers.
//
// Threads and lifetime: as Module.
class FileReaderModule : public ReaderModule {
 public:
  // `list` is complete and must outlive the stage.
  FileReaderModule(PipelineGlobals& globals, const RunOptions& options, const CopyList& list);
  ~FileReaderModule() override;

  // Reads the next piece of the current file, at most the slot's capacity unless it is a hole, and sets the
  // slot's startOfFile, length, offset, endOfFile, endOfData, sparseBlock, hole and file. Returns 0; or 1
  // after logging what can't be opened, read, sought or closed at kUrgent and stopping the pipeline. In a file audit a file that can't
  // be opened or read costs its message and a slot of length -1.
  [[nodiscard]] int fillBuffer(BufferSlot& slot) override;

 private:
  int openFile(FileC& file);
  int readPiece(BufferSlot& slot, FileC& file, Extent& extent);
  ssize_t readData(const BufferSlot& slot, const FileC& file, std::size_t wanted);
  int closeFile(FileC& file);
  int continueAt(FileC& file, const Extent& extent);
  // How many of the extent's next bytes lie in a hole and go into the next slot, as far as the file system
  // tells; in whole buffers of `capacity` bytes, unless the extent ends in the hole.
  static std::int64_t holeAhead(const FileC& file, const Extent& extent, std::int32_t capacity);
  // For an audit, which tells of a file that can't be read and goes on with the next: makes the slot one that
  // carries nothing. Returns 0.
  int passOver(BufferSlot& slot, FileC& file);
  // Stops the pipeline and returns 1; for the failing paths, which have logged why.
  int fail();

  // Takes note of a read, and lets the ring fill once the source proves slower than memory.
  void accountRead(std::int64_t bytes, std::chrono::steady_clock::duration time);

  const CopyList& copyList_;
  std::size_t position_ = 0;  // in the copy list: the extent being read
  std::int64_t totalRead_ = 0;
  bool sourceIsSlow_ = false;
  std::int64_t sampleBytes_ = 0;  // of the speed being measured
  std::chrono::steady_clock::duration sampleTime_{};
};

}  // namespace tamrix
