// The tape audit: how the files of a copy list lie on the tape, and what rewriting them could reclaim.
#pragma once

#include <cstdint>

#include "pipeline/globals.h"

namespace tamrix {

class CopyList;
struct Extent;

// Threads: the main thread; no pipeline runs meanwhile. Lifetime: any.
class Audit {
 public:
  explicit Audit(PipelineGlobals& globals);

  // Reports gaps between consecutive files, a line per file and a summary, as log lines at kInfo; the summary
  // also as plain output. Returns 0; or 1, logged at kUrgent, when the volume's block size can't be read or
  // is none, or when there are no files. When the files span no blocks, a warning stands in for the summary.
  [[nodiscard]] int report(const CopyList& list) const;

 private:
  // Returns 0, or 1 after logging why not. Blocks are in bytes.
  static int readBlockSize(const char* path, std::int32_t& blockSize);
  static void reportFile(const Extent& extent, std::int64_t blocks, std::int64_t& expectedBlock);
  static void reportSummary(const CopyList& list, const char* path, std::int64_t usedBlocks,
                            std::int32_t blockSize);
};

}  // namespace tamrix
