#include "writer/sparse_process_module.h"

#include "log/logger.h"
#include "reader/record/file_c.h"
#include "writer/byte_scan.h"

namespace tamrix {

sparseProcessModule::sparseProcessModule(PipelineGlobals& globals, const RunOptions& options)
    : ProcessModule(globals, options, "sparse") {
  logger->log(kDebug, msg::kSparseStageConstructorProps);
}

sparseProcessModule::~sparseProcessModule() { logger->log(kDebug, msg::kSparseStageDestructor); }

int sparseProcessModule::processBuffer(BufferSlot& slot) {
  const bool zero = slot.hole != 0 || allZero(slot.data, static_cast<std::size_t>(slot.length));
  slot.sparseBlock = zero ? 1 : 0;
  if (slot.sparseBlock != 0) logger->log(kDebug, msg::kSparseStageBlockFound, slot.file->fileName);
  return 0;
}

}  // namespace tamrix
