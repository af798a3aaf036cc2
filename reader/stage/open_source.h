// One source file, from its opening to its last byte.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>

#include "pipeline/ring/stop_flag.h"
#include "pipeline/stage/thread.h"
#include "reader/record/file_c.h"
#include "reader/record/run_files.h"
#include "reader/record/unique_fd.h"
#include "reader/stage/source_cache.h"

namespace tamrix {

enum class HoleSearch { kOff, kOn };

// What was read at once.
struct SourcePiece {
  std::int64_t length;  // bytes
  bool isHole;          // they are zeros, and were not read
};

// Purpose: what is copied is what is there when the file is opened. A file that is no longer the one listed
// is copied as it is now, and its record made to tell so; one that changes while it is read is copied as it
// was at its opening, and marked. Serves file after file.
//
// Every failure is logged where it happens, at kUrgent, and leaves nothing open.
// Threads: the reader's. Lifetime: the reader stage's; the record outlives each opening.
class OpenSource {
 public:
  // `reader` is the thread that opens and reads, `stop` what breaks that off. `runFiles` is told which files
  // are read; null where none are written. All must outlive this.
  OpenSource(Thread& reader, const StopFlag& stop, RunFiles* runFiles, RunLength length)
      : reader_(reader), stop_(stop), runFiles_(runFiles), cache_(length) {}

  bool isOpen() const { return fd_.isOpen(); }
  // Whether every byte that the file had at its opening was read.
  bool isComplete() const { return bytesRead_ == file_->fileSize; }
  // Of the next byte to read; 0 when nothing is open.
  std::int64_t offset() const { return isOpen() ? offset_ : 0; }

  // Opens the source of `file`. Neither waits for the writer of a FIFO nor takes anything but a regular file;
  // waits for the lease that another process holds on it, until a stop. Returns 0 or 1.
  [[nodiscard]] int open(FileC& file, HoleSearch holes);

  // Reads into `data`, at most `capacity` and at most `wanted` bytes; or finds a hole that begins here,
  // however long, in whole buffers of `capacity` bytes unless `wanted` ends in it. Returns what there is: 0
  // bytes only when 0 are wanted; nothing on failure, which a file that ends early is, too, and after a stop.
  [[nodiscard]] std::optional<SourcePiece> read(char* data, std::int64_t wanted, std::int32_t capacity);

  // Returns 0 or 1.
  [[nodiscard]] int seek(std::int64_t offset);

  // To be called when the file is complete: notes in the record whether it was changed meanwhile, and closes
  // it. Returns 0 or 1.
  [[nodiscard]] int close();

 private:
  // What came of reading: bytes, or none and an error number, or neither at the end of the file.
  struct Reading {
    std::int64_t bytes = 0;
    int error = 0;
  };

  [[nodiscard]] int openDescriptor();
  Reading readData(char* data, std::int64_t size) const;
  void follow(const struct stat& status);
  std::int64_t holeAhead(std::int64_t wanted, std::int32_t capacity) const;

  Thread& reader_;
  const StopFlag& stop_;
  RunFiles* const runFiles_;
  UniqueFd fd_;
  SourceCache cache_;
  FileC* file_ = nullptr;       // the one opened last
  std::string path_;            // of its source
  std::int64_t bytesRead_ = 0;  // holes included
  std::int64_t offset_ = 0;     // of the next byte to read
  bool mayHaveHoles_ = false;   // it is asked for them, and read by position
};

}  // namespace tamrix
