// The stage that finds buffers that need not be written.
#pragma once

#include "pipeline/stage/stages.h"

namespace tamrix {

// Marks every buffer whose data is all zeros, also an empty one; the writer leaves holes for marked buffers.
// The unit is the whole buffer as the reader cut it: zeros that share a buffer with data are written.
// Threads and lifetime: as Module.
// NOLINTNEXTLINE(readability-identifier-naming): established name
class sparseProcessModule : public ProcessModule {
 public:
  sparseProcessModule(PipelineGlobals& globals, const RunOptions& options);
  ~sparseProcessModule() override;

  // Sets the slot's sparseBlock. Returns 0.
  [[nodiscard]] int processBuffer(BufferSlot& slot) override;
};

}  // namespace tamrix
