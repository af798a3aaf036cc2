#include "reader/source_attributes.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "log/logger.h"

namespace tamrix {

namespace {

// Room for the usual value and list of names. The kernel clears as much memory as it is told there is room
// for, at each call: a call with room for the longest value costs several times one with room for this.
constexpr std::size_t kUsualSize = 512;

constexpr std::string_view kUserPrefix = "user.";
constexpr std::string_view kVendor = "VOQ";

// Calls `fill(data, size)`, a reader of extended attributes, with more and more of the buffer, which grows,
// while that is too small. Returns the bytes read, or -1 with errno set.
template <class Fill>
ssize_t readWhole(std::vector<char>& buffer, Fill fill) {
  for (std::size_t size = kUsualSize;;) {
    if (buffer.size() < size) buffer.resize(size);
    const ssize_t n = fill(buffer.data(), size);
    if (n >= 0 || errno != ERANGE) return n;
    const ssize_t needed = fill(nullptr, 0);
    if (needed < 0) return needed;
    size = std::max(size * 2, static_cast<std::size_t>(needed));
  }
}

// Cuts `path` at its last slash until what is left exists. Returns false when no slash is left to cut at.
bool cutToExisting(std::string& path) {
  struct stat status {};
  while (stat(path.c_str(), &status) != 0) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return false;
    path.resize(slash);
  }
  return true;
}

}  // namespace

void SourceAttributes::collect(FileC& file) {
  logger->log(kDebug, msg::kListGetXattrs);
  const char* const path = file.srcPath.c_str();
  const ssize_t size = readWhole(names_, [&](char* to, std::size_t n) { return listxattr(path, to, n); });
  logger->log(kDebug, msg::kListXattrsSize, static_cast<std::int32_t>(size));
  if (size < 0) {
    const int error = errno;
    if (error != ENOTSUP) logger->log(kWarning, msg::kXattrsNotListed, path, std::strerror(error));
    return;
  }
  const char* const end = names_.data() + size;
  for (const char* name = names_.data(); name < end; name += std::strlen(name) + 1) {
    if (!std::string_view(name).starts_with(kUserPrefix)) {
      logger->log(kDebug, msg::kXattrsSkip);
      continue;
    }
    logger->log(kDebug, msg::kXattrsKeep);
    if (read(path, name)) {
      file.eaList.add(name, value_.data(), value_.size());
    } else {
      const int error = errno;
      logger->log(kWarning, msg::kXattrsUnreadable, name, path, std::strerror(error));
    }
  }
  file.eaList.shrinkToFit();
}

bool SourceAttributes::readPosition(const FileC& file, TapePosition& position) {
  static constexpr const char* kStartBlock = "user.ltfs.startblock";
  const bool found = readCollected(file, kStartBlock);
  if (!found) value_.clear();
  logger->log(kDebug, msg::kListXattr, kStartBlock, value_);
  if (!found) return false;

  position = {};
  position.startBlock = std::strtoll(value_.c_str(), nullptr, 10);
  logger->log(kDebug, msg::kListStartBlock, position.startBlock);
  if (readCollected(file, "user.ltfs.partition")) {
    position.partition = static_cast<signed char>(value_.c_str()[0]);
  }
  logger->log(kDebug, msg::kListPartition, static_cast<char>(position.partition));
  if (readCollected(file, "user.ltfs.volumeUUID") || readCollected(file, "user.ltfs.volume_uuid")) {
    std::strncpy(position.volumeUuid.data(), value_.c_str(), Extent::kUuidLength);
  }
  logger->log(kDebug, msg::kListVolumeUuid, position.volumeUuid.data());
  return true;
}

bool SourceAttributes::isSoftwareVendorVOQ(const std::string& path) {
  std::string existing = path;
  if (!cutToExisting(existing)) {
    logger->log(kDebug, msg::kVendorPathMissing, path);
    return false;
  }
  logger->log(kDebug, msg::kVendorCheck, existing);
  return read(existing.c_str(), "user.ltfs.softwareVendor") && value_.starts_with(kVendor);
}

bool SourceAttributes::read(const char* path, const char* name) {
  const ssize_t n = readWhole(buffer_, [&](char* to, std::size_t m) { return getxattr(path, name, to, m); });
  if (n < 0) return false;
  value_.assign(buffer_.data(), static_cast<std::size_t>(n));
  return true;
}

bool SourceAttributes::readCollected(const FileC& file, const char* name) {
  const EaList::Iterator found = file.eaList.find(name);
  if (found == file.eaList.end()) return read(file.srcPath.c_str(), name);
  const ExtendedAttr attr = *found;
  value_.assign(attr.value != nullptr ? attr.value : "", attr.valueLength);
  return true;
}

}  // namespace tamrix
