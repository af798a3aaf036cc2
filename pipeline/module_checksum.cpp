// Comparing and storing the checksum of a file that has passed through a stage.
#include <sys/xattr.h>

#include <string>

#include "config/properties.h"
#include "log/logger.h"
#include "pipeline/module.h"
#include "reader/file_c.h"

namespace tamrix {

namespace {

// The name of the attribute that carries checksums; null when none is configured.
const char* checksumAttribute() {
  const char* name = nullptr;
  return properties->getProperty("checksumea", name) == 0 ? name : nullptr;
}

}  // namespace

int Module::verifyChecksum(const BufferSlot& slot) const {
  const std::string calculated = std::to_string(slot.file->checksum);
  logger->log(kDebug, msg::kChecksumCalculated, calculated);
  const char* const name = checksumAttribute();
  if (name == nullptr) {
    logger->log(kWarning, msg::kChecksumVerifyNoName);
    return 2;
  }
  std::string stored;
  if (slot.file->getEA(name, stored) != 0) {
    logger->log(kInfo, msg::kChecksumVerifyNoValue, name);
    return 2;
  }
  logger->log(kDebug, msg::kChecksumVerifyTest, name, stored);
  // Kept: compared as text, so leading zeros or blanks never match.
  if (stored != calculated) {
    logger->log(kDebug, msg::kChecksumMismatch, stored, calculated);
    return 1;
  }
  logger->log(kDebug, msg::kChecksumMatch, calculated);
  return 0;
}

int Module::updateChecksum(const BufferSlot& slot, ChecksumTarget target) const {
  const FileC& file = *slot.file;
  const std::string& path = target == ChecksumTarget::kDestination ? file.dstPath : file.srcPath;
  if (checksumUpdateMode_ != ChecksumUpdateMode::kNewOnly &&
      checksumUpdateMode_ != ChecksumUpdateMode::kUpdateAll) {
    logger->log(kDebug, msg::kChecksumNoUpdate, path);
    return 0;
  }
  logger->log(kDebug, msg::kChecksumUpdate, path);
  const char* const name = checksumAttribute();
  if (name == nullptr) {
    logger->log(kUrgent, msg::kChecksumUpdateNoName);
    return 1;
  }
  if (checksumUpdateMode_ == ChecksumUpdateMode::kNewOnly) {
    logger->log(kDebug, msg::kChecksumUpdateNewOnly);
    // What is there is left alone, also when it is too long or too empty to be taken for a checksum.
    if (std::string value; file.getEA(name, value) == 0 || file.eaList.find(name) != file.eaList.end()) {
      logger->log(kDebug, msg::kChecksumUpdatePresent, name);
      return 0;
    }
    logger->log(kDebug, msg::kChecksumUpdateAbsent, name);
  }
  const std::string value = std::to_string(file.checksum);
  logger->log(kDebug, msg::kChecksumUpdateSet, name, value);
  if (setxattr(path.c_str(), name, value.data(), value.size(), 0) != 0) {
    logger->log(kWarning, msg::kChecksumUpdateFailed, name);
    return 2;
  }
  return 0;
}

}  // namespace tamrix
