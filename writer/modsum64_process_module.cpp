#include "writer/modsum64_process_module.h"

#include <string>

#include "config/properties.h"
#include "log/logger.h"
#include "reader/file_c.h"
#include "writer/byte_scan.h"

namespace tamrix {

namespace {

bool readAuditMode() {
  logger->log(kDebug, msg::kMs64ConstructorProps);
  const bool audit = properties->testProperty("audit", "files") != 0;
  if (audit) {
    logger->log(kDebug, msg::kMs64AuditEnabled);
  } else {
    logger->log(kDebug, msg::kMs64AuditDisabled);
  }
  return audit;
}

}  // namespace

modsum64ProcessModule::modsum64ProcessModule(PipelineGlobals& globals)
    : ProcessModule(globals, "checksum"), auditMode_(readAuditMode()) {}

modsum64ProcessModule::~modsum64ProcessModule() { logger->log(kDebug, msg::kMs64Destructor); }

int modsum64ProcessModule::processBuffer(BufferSlot& slot) {
  FileC& file = *slot.file;
  if (slot.startOfFile != 0) {
    logger->log(kDebug, msg::kMs64StartOfFile);
    file.checksum = 0;
  }
  logger->log(kDebug, msg::kMs64Update);
  if (slot.hole == 0) file.checksum += byteSum(slot.data, static_cast<std::size_t>(slot.length));
  if (slot.endOfFile == 0) return 0;

  logger->log(kDebug, msg::kMs64EndOfFile);
  const char* name = nullptr;
  if (properties->getProperty("checksumea", name) != 0) {
    logger->log(kUrgent, msg::kMs64NoName);
    return 1;
  }
  // Kept: a copy computes and reports nothing, whatever the verify and update modes.
  return auditMode_ ? auditFile(slot) : 0;
}

int modsum64ProcessModule::auditFile(const BufferSlot& slot) const {
  bool failed = false;
  std::string word;
  switch (verifyChecksum(slot)) {
    case 0:
      word = logger->text(msg::kMs64PassWord.number);
      logger->log(kInfo, msg::kMs64Pass);
      break;
    case 1:
      failed = true;
      word = logger->text(msg::kMs64FailWord.number);
      logger->log(kUrgent, msg::kMs64Fail);
      break;
    default:
      // Kept: a file that can't be verified counts as a success.
      word = logger->text(msg::kMs64NotPossibleWord.number);
      logger->log(kWarning, msg::kMs64NotPossible);
      break;
  }
  if (const int updated = updateChecksum(slot, ChecksumTarget::kSource); updated != 0) return updated;

  const std::string pair = "\"" + word + "\",\"" + slot.file->srcPath + "\"";
  if (failed) {
    logger->log(kInfo, msg::kMs64StatusError, pair);
  } else {
    logger->log(kInfo, msg::kMs64StatusSuccess, pair);
  }
  return 0;
}

}  // namespace tamrix
