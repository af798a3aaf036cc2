#include "model/volume_files.h"

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <fstream>
#include <utility>

namespace tamrix::model {

namespace {

constexpr std::string_view kVirtualPrefix = "user.ltfs.";

int give(const std::string& value, char* to, std::size_t size) {
  if (size != 0 && size < value.size()) return -ERANGE;
  if (size != 0) value.copy(to, value.size());
  return static_cast<int>(value.size());
}

}  // namespace

VolumeFiles::VolumeFiles(TapeVolumeSettings settings, std::string directory)
    : settings_(std::move(settings)), directory_(std::move(directory)) {
  std::ifstream layout(settings_.layoutFile);
  Position position;
  for (std::string path;
       layout >> position.partition >> position.block && std::getline(layout >> std::ws, path);) {
    layout_["/" + path] = position;
  }
  if (!settings_.stream.empty()) stream_.emplace(settings_.stream);
}

int VolumeFiles::open(const char* path, int flags, mode_t mode, std::uint64_t& handle) {
  const int fd = ::open(backing(path).c_str(), (flags & ~O_NOFOLLOW) | O_CLOEXEC, mode);
  if (fd < 0) return -errno;
  const auto found = layout_.find(path);
  handle = ++lastHandle_;
  open_[handle] = {fd, path + 1, found == layout_.end() ? nullptr : &found->second};
  return 0;
}

int VolumeFiles::release(std::uint64_t handle) {
  const int fd = openFile(handle).fd;
  open_.erase(handle);
  return outcome(close(fd));
}

int VolumeFiles::read(const OpenFile& file, char* to, std::size_t size, std::int64_t offset) {
  const ssize_t n = pread(file.fd, to, size, offset);
  if (n > 0 && stream_) {
    stream_->move(DriveBuffer::Direction::kRead, n);
    return static_cast<int>(n);
  }
  if (n <= 0 || file.position == nullptr) return outcome(n);
  account_.locate(file.path, *file.position, offset);
  const std::int64_t good = std::min<std::int64_t>(n, goodBytes(*file.position, offset));
  account_.read(good);
  return good > 0 ? static_cast<int>(good) : -EIO;
}

int VolumeFiles::write(const OpenFile& file, const char* from, std::size_t size, std::int64_t offset) {
  if (!stream_) return outcome(pwrite(file.fd, from, size, offset));
  const std::int64_t end = offset + static_cast<std::int64_t>(size);
  struct stat status {};
  if (fstat(file.fd, &status) != 0 || (status.st_size < end && ftruncate(file.fd, end) != 0)) return -errno;
  stream_->move(DriveBuffer::Direction::kWrite, end - offset);
  return static_cast<int>(size);
}

void VolumeFiles::correctBlocks(struct stat* status) const {
  if (stream_) status->st_blocks = (status->st_size + 511) / 512;
}

int VolumeFiles::getAttribute(const char* path, const std::string& name, char* to, std::size_t size) const {
  if (!isVirtual(name)) {
    const int got = outcome(lgetxattr(backing(path).c_str(), name.c_str(), to, size));
    return got >= 0 && name == settings_.badAttribute ? -EIO : got;
  }
  const std::map<std::string, std::string> all = virtualAttributes(path);
  const auto found = all.find(name);
  if (found == all.end()) return -ENODATA;
  if (name == settings_.badAttribute) return -EIO;
  return give(found->second, to, size);
}

int VolumeFiles::listAttributes(const char* path, char* to, std::size_t size) const {
  std::string own(XATTR_LIST_MAX, '\0');
  const ssize_t n = llistxattr(backing(path).c_str(), own.data(), own.size());
  if (n < 0) return -errno;
  std::string names;
  for (const char* name = own.data(); name < own.data() + n; name += std::strlen(name) + 1) {
    if (!isVirtual(name)) names.append(name, std::strlen(name) + 1);
  }
  for (const auto& [name, value] : virtualAttributes(path)) names += name + '\0';
  return give(names, to, size);
}

bool VolumeFiles::isVirtual(std::string_view attribute) const {
  return !settings_.vendor.empty() && attribute.starts_with(kVirtualPrefix);
}

// How much can be read behind `offset` of the file at `position` before a bad block comes.
std::int64_t VolumeFiles::goodBytes(const Position& position, std::int64_t offset) const {
  const auto bad =
      settings_.badBlocks.lower_bound({position.partition, position.block + offset / settings_.blockSize});
  if (bad == settings_.badBlocks.end() || bad->partition != position.partition) return INT64_MAX;
  return std::max<std::int64_t>(0, (bad->block - position.block) * settings_.blockSize - offset);
}

std::map<std::string, std::string> VolumeFiles::virtualAttributes(const char* path) const {
  if (settings_.vendor.empty()) return {};
  std::map<std::string, std::string> all = {
      {"user.ltfs.softwareVendor", settings_.vendor},
      {"user.ltfs.volumeUUID", settings_.uuid},
      {"user.ltfs.volumeBlocksize", std::to_string(settings_.blockSize)}};
  if (const auto found = layout_.find(path); found != layout_.end()) {
    all["user.ltfs.partition"] = found->second.partition;
    all["user.ltfs.startblock"] = std::to_string(found->second.block);
  }
  return all;
}

}  // namespace tamrix::model
