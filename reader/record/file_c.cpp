#include "reader/record/file_c.h"

#include <cstring>
#include <utility>

#include "log/logger.h"

namespace tamrix {

namespace {

constexpr std::size_t kMaxTextLength = 255;
constexpr std::int64_t kStatBlock = 512;  // bytes; see stat(2)

const char* baseName(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return path.c_str() + (slash == std::string::npos ? 0 : slash + 1);
}

int reportTooLong(const std::string& name) {
  logger->log(kUrgent, msg::kAttributesTooLong, name, static_cast<std::int32_t>(name.size()));
  return 1;
}

}  // namespace

ExistingDestination::ExistingDestination(const struct stat& status)
    : identity(status),
      size(status.st_size),
      allocated(status.st_blocks * kStatBlock),
      modifyTime(status.st_mtim),
      mode(status.st_mode) {}

FileC::FileC(std::string source, std::string destination, const struct stat& status)
    : srcPath(std::move(source)),
      dstPath(std::move(destination)),
      fileName(baseName(srcPath)),
      listed(status),
      fileSize(status.st_size),
      accessTime(status.st_atim),
      modifyTime(status.st_mtim),
      fileMode(status.st_mode) {}

int FileC::getEA(const std::string& name, std::string& value) const {
  logger->log(kDebug, msg::kAttributesGetFind, name);
  if (name.empty()) {
    logger->log(kUrgent, msg::kAttributesNameNotConverted);
    return 1;
  }
  if (name.size() > kMaxTextLength) return reportTooLong(name);
  const EaList::Iterator found = eaList.find(name);
  if (found == eaList.end()) {
    logger->log(kDebug, msg::kAttributesGetNotFound);
    return 1;
  }
  const char* const text = (*found).value;
  value = text != nullptr ? text : "";
  if (value.empty()) {
    logger->log(kUrgent, msg::kAttributesNameNotConverted);
    return 1;
  }
  if (value.size() > kMaxTextLength) return reportTooLong(name);
  logger->log(kDebug, msg::kAttributesGetFound, value);
  return 0;
}

}  // namespace tamrix
