#include "writer/modsum64_process_module.h"

#include <string>
#include <utility>

#include "log/logger.h"
#include "reader/record/file_c.h"

namespace tamrix {

modsum64ProcessModule::modsum64ProcessModule(PipelineGlobals& globals, const RunOptions& options,
                                             std::unique_ptr<ChecksumAlgorithm> algorithm)
    : ProcessModule(globals, options, "checksum"), algorithm_(std::move(algorithm)) {
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
    algorithm_->reset();
  }
  logger->log(kDebug, msg::kChecksumStageUpdate);
  const auto length = static_cast<std::size_t>(slot.length);
  if (slot.hole == 0) {
    algorithm_->add(slot.data, length);
  } else {
    algorithm_->addZeros(length);
  }
  if (slot.endOfFile == 0) return 0;

  logger->log(kDebug, msg::kChecksumStageEndOfFile);
  file.checksum = std::make_unique<const std::string>(algorithm_->text());
  if (options_.checksumAttribute.empty()) {
    logger->log(kUrgent, msg::kChecksumStageNoName);
    return 1;
  }
  // Kept: a copy computes and reports nothing, whatever the verify and update modes.
  return options_.audit == AuditMode::kFiles ? auditFile(slot) : 0;
}

int modsum64ProcessModule::auditFile(const BufferSlot& slot) const {
  AuditResult& result = slot.file->auditResult;
  std::string word;
  switch (verifyChecksum(slot)) {
    case 0:
      result = AuditResult::kPass;
      word = logger->text(msg::kChecksumStagePassWord.number);
      logger->log(kInfo, msg::kChecksumStagePass);
      break;
    case 1:
      result = AuditResult::kFail;
      word = logger->text(msg::kChecksumStageFailWord.number);
      logger->log(kUrgent, msg::kChecksumStageFail);
      break;
    default:
      result = AuditResult::kNotPossible;
      // Kept: a file that can't be verified counts as a success.
      word = logger->text(msg::kChecksumStageNotPossibleWord.number);
      logger->log(kWarning, msg::kChecksumStageNotPossible);
      break;
  }
  if (slot.file->changedWhileRead && options_.checksumUpdate > ChecksumUpdateMode::kCalcOnly) {
    // What was read may never have been the file's content at any one time.
    logger->log(kWarning, msg::kChecksumStageChanged, slot.file->srcPath.text());
  } else if (const int updated = updateChecksum(slot, ChecksumTarget::kSource); updated != 0) {
    return updated;
  }

  const std::string pair = "\"" + word + "\",\"" + slot.file->srcPath.text() + "\"";
  if (result == AuditResult::kFail) {
    logger->log(kInfo, msg::kChecksumStageStatusError, pair);
  } else {
    logger->log(kInfo, msg::kChecksumStageStatusSuccess, pair);
  }
  return 0;
}

}  // namespace tamrix
