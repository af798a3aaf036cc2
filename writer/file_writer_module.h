// The last stage: writes buffers into the destination files.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

#include "pipeline/stage/stages.h"
#include "reader/record/file_c.h"

namespace tamrix {

// Per destination: created (with the directories above it), locked, in sparse mode given its length, written
// buffer by buffer, and with its last buffer given the source's user attributes, unlocked, closed, given the
// source's times and reported by one status line. What can go wrong, and what becomes of the destination
// then:
//
//   what fails                    destination    status line   run
//   creating it or a directory    not made       none          ends
//   locking, held by another      left, empty    none          ends
//   locking otherwise, sizing     deleted        ERROR         ends
//   seeking, writing, closing     deleted        ERROR         ends
//   a byte unaccounted for        deleted        ERROR         ends
//   unlocking when complete       left           none          ends
//   times, an attribute           kept           WARNING       goes on
//   the run ends in mid-file      deleted        ERROR         -
//
// What is deleted is the file that a link leads to; a device or FIFO is never deleted.
//
// Threads and lifetime: as Module. The records that buffers point at outlive it.
class FileWriterModule : public WriterModule {
 public:
  FileWriterModule(PipelineGlobals& globals, const RunOptions& options);
  ~FileWriterModule() override;

  // Writes the buffer into its file's destination. Returns 0, also for a file completed with warnings; 1
  // after a failure, having logged it at kUrgent and stopped the pipeline.
  [[nodiscard]] int emptyBuffer(BufferSlot& slot) override;

 protected:
  // Discards every destination that is still open: no half file stays behind.
  void finish() override;

 private:
  int openDestination(FileC& file);
  int createFile(FileC& file);
  int lockFile(FileC& file);
  int sizeFile(const FileC& file) const;
  int writeBuffer(const BufferSlot& slot, FileC& file) const;
  int skipZeros(const BufferSlot& slot, FileC& file) const;
  int writeData(const BufferSlot& slot, FileC& file) const;
  int completeFile(FileC& file);
  int closeCompleted(FileC& file);
  int copyTimes(const FileC& file) const;
  void copyAttributes(const FileC& file);
  // What a failure in mid-file leads to: unlocks, closes and deletes the destination and reports it.
  void discardDestination(FileC& file);
  void reportAndDelete(const FileC& file) const;
  int unlockFile(const FileC& file) const;
  int fail();

  const bool sparseMode_;
  std::map<std::string_view, FileC*> openList_;  // destinations being written, by source path
  FileC* current_ = nullptr;                     // the one that the last buffer went to
  std::vector<const char*> refusedAttributes_;   // of the file being completed
  std::int64_t totalLength_ = 0;                 // of all buffers so far
};

}  // namespace tamrix
