#include "reader/record/file_c.h"

#include "log/logger.h"

namespace tamrix {

namespace {

constexpr std::size_t kMaxTextLength = 255;

int reportTooLong(const std::string& name) {
  logger->log(kUrgent, msg::kAttributesTooLong, name, static_cast<std::int32_t>(name.size()));
  return 1;
}

}  // namespace

ExistingDestination::ExistingDestination(const struct stat& status)
    : identity(status),
      size(status.st_size),
      allocated(allocatedBytes(status)),
      modifyTime(status.st_mtim),
      mode(status.st_mode) {}

FileC::FileC(const FilePair& paths, const struct stat& status)
    : srcPath(paths.source),
      dstPath(paths.destination),
      fileName(srcPath.name()),
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
