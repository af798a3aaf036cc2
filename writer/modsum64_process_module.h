// The stage that computes a checksum of every file, and in file audit verifies and stores it.
#pragma once

#include <memory>

#include "pipeline/stage/stages.h"
#include "writer/checksum_algorithm.h"

namespace tamrix {

// Computes any checksum of the table in checksum_algorithm.h; none depends on how a file is cut into buffers.
// In a copy the stage only computes; with the option "audit" set to "files" it
// compares the checksum with the source's checksum attribute, stores it there when the update mode asks for
// it, and reports every file by a status line. Threads and lifetime: as Module.
// NOLINTNEXTLINE(readability-identifier-naming): established name
class modsum64ProcessModule : public ProcessModule {
 public:
  modsum64ProcessModule(PipelineGlobals& globals, const RunOptions& options,
                        std::unique_ptr<ChecksumAlgorithm> algorithm);
  ~modsum64ProcessModule() override;

  // Adds the buffer to its file's checksum. Returns 0; at the end of a file 1 without a checksum attribute
  // configured (kUrgent) and 2 when the checksum can't be stored. A mismatch is reported and ends nothing.
  [[nodiscard]] int processBuffer(BufferSlot& slot) override;

 private:
  [[nodiscard]] int auditFile(const BufferSlot& slot) const;

  const std::unique_ptr<ChecksumAlgorithm> algorithm_;
};

}  // namespace tamrix
