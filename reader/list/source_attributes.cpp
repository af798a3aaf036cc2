#include "reader/list/source_attributes.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "log/logger.h"
#include "reader/list/path_identity.h"

namespace tamrix {

namespace {

// Room for the usual value and list of names. At each call the kernel clears as much memory as the caller has
// room for, so that room for the longest value would make it several times as slow.
constexpr std::size_t kUsualSize = 512;

constexpr std::string_view kUserPrefix = "user.";
constexpr const char* kStartBlock = "user.ltfs.startblock";
constexpr const char* kPartition = "user.ltfs.partition";
constexpr const char* kVolumeUuid = "user.ltfs.volumeUUID";
constexpr const char* kOtherVolumeUuid = "user.ltfs.volume_uuid";
constexpr const char* kSoftwareVendor = "user.ltfs.softwareVendor";
constexpr std::string_view kVendor = "VOQ";

bool isUserAttribute(const char* name) { return std::string_view(name).starts_with(kUserPrefix); }

// Calls `fill(data, size)`, a reader of extended attributes, with the buffer from byte `kept` on, and again
// with a larger buffer while that is too small. Returns 0 and the bytes read in `length`, or an error number.
template <class Fill>
int readWhole(std::vector<char>& buffer, std::size_t kept, std::size_t& length, Fill fill) {
  for (std::size_t size = kUsualSize;;) {
    if (buffer.size() < kept + size) buffer.resize(kept + size);
    ssize_t n = fill(buffer.data() + kept, size);
    if (n >= 0) {
      length = static_cast<std::size_t>(n);
      return 0;
    }
    if (errno == ERANGE) n = fill(nullptr, 0);
    if (n < 0) return errno;
    size = std::max(size * 2, static_cast<std::size_t>(n));
  }
}

// Calls `action(name)` for each name in a list as listxattr(2) gives it.
template <class Action>
void forEachName(const std::vector<char>& names, std::size_t size, Action action) {
  const char* const end = names.data() + size;
  for (const char* name = names.data(); name < end; name += std::strlen(name) + 1) action(name);
}

}  // namespace

void SourceAttributes::read(const char* path) {
  users_.clear();
  used_ = 0;
  listed_ = 0;
  listError_ =
      readWhole(names_, 0, listed_, [&](char* to, std::size_t room) { return listxattr(path, to, room); });
  forEachName(names_, listed_, [&](const char* name) {
    if (isUserAttribute(name)) users_.push_back(readValue(path, name));
  });
  startBlock_ = readPosition(path, kStartBlock);
  if (startBlock_.error != 0) return;
  partition_ = readPosition(path, kPartition);
  volumeUuid_ = readPosition(path, kVolumeUuid);
  if (volumeUuid_.error != 0) volumeUuid_ = readPosition(path, kOtherVolumeUuid);
}

SourceAttributes::Reading SourceAttributes::readValue(const char* path, const char* name) {
  Reading reading{0, used_, 0};
  reading.error = readWhole(values_, used_, reading.length,
                            [&](char* to, std::size_t room) { return getxattr(path, name, to, room); });
  if (reading.error != 0) return reading;
  used_ += reading.length + 1;
  if (values_.size() < used_) values_.resize(used_);
  values_[used_ - 1] = '\0';
  return reading;
}

SourceAttributes::Reading SourceAttributes::readPosition(const char* path, const char* name) {
  Reading found{ENODATA, 0, 0};
  auto user = users_.begin();
  forEachName(names_, listed_, [&](const char* listed) {
    if (!isUserAttribute(listed)) return;
    if (std::strcmp(listed, name) == 0) found = *user;
    ++user;
  });
  return found.error == 0 ? found : readValue(path, name);
}

void SourceAttributes::collect(FileC& file, const std::string& path) const {
  logger->log(kDebug, msg::kCopyListGetXattrs);
  logger->log(kDebug, msg::kCopyListXattrsSize, listError_ == 0 ? static_cast<std::int32_t>(listed_) : -1);
  if (listError_ != 0) {
    if (listError_ != ENOTSUP) {
      logger->log(kWarning, msg::kAttributesNotListed, path, std::strerror(listError_));
    }
    return;
  }
  std::size_t valueBytes = 0;
  for (const Reading& reading : users_) valueBytes += reading.length;
  file.eaList.reserve(users_.size(), valueBytes);
  auto user = users_.begin();
  forEachName(names_, listed_, [&](const char* name) {
    if (!isUserAttribute(name)) {
      logger->log(kDebug, msg::kAttributesSkip);
      return;
    }
    logger->log(kDebug, msg::kAttributesKeep);
    const Reading& reading = *user++;
    if (reading.error == 0) {
      file.eaList.add(name, text(reading), reading.length);
    } else {
      logger->log(kWarning, msg::kAttributesUnreadable, name, path, std::strerror(reading.error));
    }
  });
}

bool SourceAttributes::tellPosition(TapePosition& position) const {
  const bool found = startBlock_.error == 0;
  logger->log(kDebug, msg::kCopyListXattr, kStartBlock, found ? text(startBlock_) : "");
  if (!found) return false;

  position = {};
  position.startBlock = std::strtoll(text(startBlock_), nullptr, 10);
  logger->log(kDebug, msg::kCopyListStartBlock, position.startBlock);
  if (partition_.error == 0) position.partition = static_cast<signed char>(*text(partition_));
  logger->log(kDebug, msg::kCopyListPartition, static_cast<char>(position.partition));
  if (volumeUuid_.error == 0) {
    std::strncpy(position.volumeUuid.data(), text(volumeUuid_), Extent::kUuidLength);
  }
  logger->log(kDebug, msg::kCopyListVolumeUuid, position.volumeUuid.data());
  return true;
}

bool isSoftwareVendorVOQ(const std::string& path) {
  struct stat status {};
  const std::string existing = path.substr(0, existingPart(path, status).length);
  if (existing.empty()) {
    logger->log(kDebug, msg::kCopyListVendorPathMissing, path);
    return false;
  }
  logger->log(kDebug, msg::kCopyListVendorCheck, existing);
  std::vector<char> value;
  std::size_t length = 0;
  const int error = readWhole(value, 0, length, [&](char* to, std::size_t room) {
    return getxattr(existing.c_str(), kSoftwareVendor, to, room);
  });
  return error == 0 && std::string_view(value.data(), length).starts_with(kVendor);
}

}  // namespace tamrix
