// Comparing and storing the checksum of a file that has passed through a stage.
#include <sys/xattr.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "log/logger.h"
#include "pipeline/stage/module.h"
#include "reader/record/file_c.h"

namespace tamrix {

int Module::verifyChecksum(const BufferSlot& slot) const {
  const std::string& calculated = *slot.file->checksum;
  logger->log(kDebug, msg::kModuleChecksumCalculated, calculated);
  const std::string& name = options_.checksumAttribute;
  if (name.empty()) {
    logger->log(kWarning, msg::kModuleChecksumVerifyNoName);
    return 2;
  }
  std::string stored;
  if (slot.file->getEA(name, stored) != 0) {
    logger->log(kInfo, msg::kModuleChecksumVerifyNoValue, name);
    return 2;
  }
  logger->log(kDebug, msg::kModuleChecksumVerifyTest, name, stored);
  // Kept: compared as text, so leading zeros or blanks never match.
  if (stored != calculated) {
    logger->log(kDebug, msg::kModuleChecksumMismatch, stored, calculated);
    return 1;
  }
  logger->log(kDebug, msg::kModuleChecksumMatch, calculated);
  return 0;
}

int Module::updateChecksum(const BufferSlot& slot, ChecksumTarget target) const {
  const FileC& file = *slot.file;
  const std::string path = (target == ChecksumTarget::kDestination ? file.dstPath : file.srcPath).text();
  if (options_.checksumUpdate != ChecksumUpdateMode::kNewOnly &&
      options_.checksumUpdate != ChecksumUpdateMode::kUpdateAll) {
    logger->log(kDebug, msg::kModuleChecksumNoUpdate, path);
    return 0;
  }
  logger->log(kDebug, msg::kModuleChecksumUpdate, path);
  const std::string& name = options_.checksumAttribute;
  if (name.empty()) {
    logger->log(kUrgent, msg::kModuleChecksumUpdateNoName);
    return 1;
  }
  if (options_.checksumUpdate == ChecksumUpdateMode::kNewOnly) {
    logger->log(kDebug, msg::kModuleChecksumUpdateNewOnly);
    // An attribute that is there is left alone, even when it is empty or too long for a checksum.
    if (std::string value; file.getEA(name, value) == 0 || file.eaList.find(name) != file.eaList.end()) {
      logger->log(kDebug, msg::kModuleChecksumUpdatePresent, name);
      return 0;
    }
    logger->log(kDebug, msg::kModuleChecksumUpdateAbsent, name);
  }
  const std::string& value = *file.checksum;
  logger->log(kDebug, msg::kModuleChecksumUpdateSet, name, value);
  const int flags = options_.checksumUpdate == ChecksumUpdateMode::kNewOnly ? XATTR_CREATE : 0;
  if (setxattr(path.c_str(), name.c_str(), value.data(), value.size(), flags) != 0) {
    const int error = errno;
    if (flags != 0 && error == EEXIST) {
      // It was not read when the file was listed: it can't be read, or was made since.
      logger->log(kWarning, msg::kChecksumStageNotReplaced, name, path);
      return 0;
    }
    logger->log(kWarning, msg::kModuleChecksumUpdateFailed, name);
    logger->log(kWarning, msg::kModuleChecksumNotStored, path, std::strerror(error));
    return 2;
  }
  return 0;
}

}  // namespace tamrix
