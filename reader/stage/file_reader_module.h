// The first stage: reads the files of the copy list, in its order, into buffers.
#pragma once

#include <cstdint>
#include <vector>

#include "pipeline/stage/stages.h"
#include "reader/list/copy_list.h"
#include "reader/stage/open_source.h"
#include "reader/stage/source_lookups.h"

namespace tamrix {

// A buffer carries data of one file only. A file is opened for its first buffer and closed with its last, so
// at most one source is open. Files are read up to the size that they have when opened: one that ends earlier
// is a read error. In sparse mode, what the file system tells to be a hole is not read: one slot stands for
// all of its whole buffers.
//
// Threads and lifetime: as Module.
class FileReaderModule : public ReaderModule {
 public:
  // `list` is complete; `runFiles` is null where the run writes no files. Both must outlive the stage.
  FileReaderModule(PipelineGlobals& globals, const RunOptions& options, const CopyList& list,
                   RunFiles* runFiles);
  ~FileReaderModule() override;

  // Reads the next piece of the current file, at most the slot's capacity unless it is a hole, and sets the
  // slot's startOfFile, length, offset, endOfFile, endOfData, sparseBlock, hole and file. Returns 0; or 1
  // after logging what can't be opened, read, sought or closed at kUrgent and stopping the pipeline. In a
  // file audit, a file that can't be opened or read costs its message and a slot of length -1.
  [[nodiscard]] int fillBuffer(BufferSlot& slot) override;

 private:
  [[nodiscard]] int openSource(FileC& file);
  // Goes on to the next extent. Returns 0, or 1 after logging.
  [[nodiscard]] int advance();
  void fillHeader(BufferSlot& slot, FileC& file, std::int32_t length) const;
  // What becomes of a file that can't be opened or read, which has been logged: the end of the run, but in an
  // audit a slot that carries nothing. Returns 0 or 1.
  [[nodiscard]] int passOver(BufferSlot& slot);
  // Stops the pipeline and returns 1; for the failing paths, which have logged why.
  [[nodiscard]] int fail();

  const CopyList& copyList_;
  std::size_t position_ = 0;    // in the copy list: the extent being read
  std::int64_t remaining_ = 0;  // bytes of it still to read
  OpenSource source_;           // the extent's file, unless it is still to be opened
  SourceLookups lookups_;
  std::int64_t totalRead_ = 0;
};

}  // namespace tamrix
