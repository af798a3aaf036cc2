// The stage that computes a checksum of every file, and in file audit verifies and stores it.
#pragma once

#include "pipeline/stage/stages.h"

namespace tamrix {

// The checksum "modsum64" is the sum of all bytes of a file modulo 2^64, so it does not depend on how the
// file is cut into buffers. In a copy the stage only computes; with the option "audit" set to "files" it
// compares the sum with the source's checksum attribute, stores it there when the update mode asks for it,
// and reports every file by a status line. Threads and lifetime: as Module.
// NOLINTNEXTLINE(readability-identifier-naming): established name
class modsum64ProcessModule : public ProcessModule {
 public:
  modsum64ProcessModule(PipelineGlobals& globals, const RunOptions& options);
  ~modsum64ProcessModule() override;

  // Adds the buffer to its file's checksum. Returns 0; at the end of a file 1 without a checksum attribute
  // configured (kUrgent) and 2 when the checksum can't be stored. A mismatch is reported and ends nothing.
  [[nodiscard]] int processBuffer(BufferSlot& slot) override;

 private:
  int auditFile(const BufferSlot& slot) const;
};

}  // namespace tamrix
