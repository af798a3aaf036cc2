#include "writer/modsum64_process_module.h"

#include <string>

#include "log/logger.h"
#include "reader/record/file_c.h"
#include "writer/byte_scan.h"

namespace tamrix {

modsum64ProcessModule::modsum64ProcessModule(PipelineGlobals& globals, const RunOptions& options)
    : ProcessModule(globals, options, "checksum") {
  logger->log(kDebug, msg::kChecksumStageConstructorProps);
  if (options.audit == AuditMode::kFiles) {
    logger->log(kDebug, msg::kChecksumStageAuditEnabled);
  } else {
    logger->log(kDebug, msg::kChecksumStageAuditDisabled);
  }
}

modsum64ProcessModule::~modsum64ProcessModule() { logger->log(kDebug, msg::kChecksumStageDestructor); }

int modsum64ProcessModule::processBuffer(BufferSlot& slot) {
  FileC& file = *slot.file;
  if (slot.startOfFile != 0) {
    logger->log(kDebug, msg::kChecksumStageStartOfFile);
    file.checksum = 0;
  }
  logger->log(kDebug, msg::kChecksumStageUpdate);
  if (slot.hole == 0) file.checksum += byteSum(slot.data, static_cast<std::size_t>(slot.length));
  if (slot.endOfFile == 0) return 0;

  logger->log(kDebug, msg::kChecksumStageEndOfFile);
  if (options_.checksumAttribute.empty()) {
    logger->log(kUrgent, msg::kChecksumStageNoName);
    return 1;
  }
  // Kept: a copy computes and reports nothing, whatever the verify and update modes.
  return options_.audit == AuditMode::kFiles ? auditFile(slot) : 0;
}

int modsum64ProcessModule::auditFile(const BufferSlot& slot) const {
  bool failed = false;
  std::string word;
  switch (verifyChecksum(slot)) {
    case 0:
      word = logger->text(msg::kChecksumStagePassWord.number);
      logger->log(kInfo, msg::kChecksumStagePass);
      break;
    case 1:
      failed = true;
      word = logger->text(msg::kChecksumStageFailWord.number);
      logger->log(kUrgent, msg::kChecksumStageFail);
      break;
    default:
      // Kept: a file that can't be verified counts as a success.
      word = logger->text(msg::kChecksumStageNotPossibleWord.number);
      logger->log(kWarning, msg::kChecksumStageNotPossible);
      break;
  }
  if (const int updated = updateChecksum(slot, ChecksumTarget::kSource); updated != 0) return updated;

  const std::string pair = "\"" + word + "\",\"" + slot.file->srcPath + "\"";
  if (failed) {
    logger->log(kInfo, msg::kChecksumStageStatusError, pair);
  } else {
    logger->log(kInfo, msg::kChecksumStageStatusSuccess, pair);
  }
  return 0;
}

}  // namespace tamrix
