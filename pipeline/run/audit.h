// The tape audit: how the files of a copy list lie on the tape, and what rewriting them could reclaim.
#pragma once

#include <cstdint>
#include <string>

#include "config/run_options.h"
#include "pipeline/run/tape_layout.h"

namespace tamrix {

class CopyList;
class StopFlag;
struct Extent;

// Finds out the size in bytes of a block of the volume that `path` is on. Returns false, silently, when the
// volume does not tell it, or it is not a positive number.
bool findBlockSize(const std::string& path, std::int32_t& blockSize);

// Threads: the main thread; no pipeline runs meanwhile. Lifetime: any.
class Audit {
 public:
  // Both must outlive it. The source path of `options` is where the volume is mounted; `stop` breaks off.
  Audit(const RunOptions& options, const StopFlag& stop);

  // Reports gaps between consecutive files, a line per file and a summary, as log lines at kInfo; the summary
  // also as plain output. Returns 0; or 1 when the volume's block size can't be read or is none, logged at
  // kUrgent, and when a stop came. When the files span no blocks, a warning replaces the summary.
  [[nodiscard]] int report(const CopyList& list) const;

 private:
  // Reads the size in bytes of a block of the volume. Returns 0, or 1 after logging why not.
  [[nodiscard]] int readBlockSize(std::int32_t& blockSize) const;
  static void reportFile(const Extent& extent, Blocks blocks, Blocks& expectedBlock);
  void reportSummary(const CopyList& list, Blocks usedBlocks, std::int32_t blockSize) const;

  const RunOptions& options_;
  const StopFlag& stop_;
};

}  // namespace tamrix
