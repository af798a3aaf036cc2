#include "pipeline/run/plan_room.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "log/logger.h"
#include "pipeline/run/plan_volumes.h"
#include "reader/record/file_c.h"

namespace tamrix {

namespace {

// The directory that `path` is in; the root of one that is right below it.
std::string_view directoryOf(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
}

// 0 when files can be made in the directory, or an error number.
int refusal(const std::string& directory, const struct stat& status) {
  if (!S_ISDIR(status.st_mode)) return ENOTDIR;
  return faccessat(AT_FDCWD, directory.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

// The uppermost directory on the way to `path` that is on the same file system.
std::string topOf(dev_t device, const std::string& path) {
  std::string_view top = path;
  for (std::string_view above = directoryOf(top); above.size() < top.size(); above = directoryOf(top)) {
    struct stat status {};
    if (stat(std::string(above).c_str(), &status) != 0 || status.st_dev != device) break;
    top = above;
  }
  return std::string(top);
}

std::int64_t count(fsblkcnt_t number) { return clampedToInt64(static_cast<Blocks>(number)); }

}  // namespace

void DestinationRooms::add(const FileC& file) {
  const std::string path = file.dstPath.text();
  std::size_t room = kNone;
  if (file.existing == nullptr) {
    room = roomOf(directoryOf(path));
  } else {
    checkExisting(file, path);
    // Where it lies itself: it may be behind a link.
    room = roomOn(file.existing->identity.device, path);
  }
  if (room != kNone) addFile(rooms_[room], file);
}

void DestinationRooms::checkExisting(const FileC& file, const std::string& path) {
  int error = S_ISDIR(file.existing->mode) ? EISDIR : 0;
  if (error == 0 && faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) != 0) error = errno;
  if (error == EROFS) {
    (void)roomOf(directoryOf(path));  // reported once, for all its files
  } else if (error != 0) {
    logger->log(kUrgent, msg::kPlanFileNotWritable, path, std::strerror(error));
  }
}

void DestinationRooms::addFile(DestinationRoom& room, const FileC& file) {
  const Blocks blocks = (Blocks{file.fileSize} + room.blockSize - 1) / room.blockSize;
  room.neededBytes += blocks * room.blockSize;
  if (file.existing == nullptr) {
    ++room.neededInodes;
  } else {
    room.neededBytes -= file.existing->allocated;
  }
}

std::size_t DestinationRooms::roomOf(std::string_view directory) {
  if (directory != lastDirectory_) {
    lastRoom_ = findRoom(directory);
    lastDirectory_ = directory;
  }
  return lastRoom_;
}

std::size_t DestinationRooms::findRoom(std::string_view directory) {
  const auto known = byDirectory_.find(directory);
  if (known != byDirectory_.end()) return known->second;
  const std::string path(directory);
  struct stat status {};
  const int error = stat(path.c_str(), &status) == 0 ? refusal(path, status) : errno;
  std::size_t room = kNone;
  if ((error == ENOENT || error == ENOTDIR) && status.st_mode == 0 && directory.size() > 1) {
    // Would be made. A file that stands in the way is reported for what it is.
    room = findRoom(directoryOf(directory));
    if (room != kNone) {
      rooms_[room].neededBytes += rooms_[room].blockSize;
      ++rooms_[room].neededInodes;
    }
  } else {
    if (error != 0) logger->log(kUrgent, msg::kPlanDirectoryNotWritable, path, std::strerror(error));
    if (status.st_mode != 0) room = roomOn(status.st_dev, path);
  }
  byDirectory_.emplace(directory, room);
  return room;
}

std::size_t DestinationRooms::roomOn(dev_t device, const std::string& path) {
  const auto known = std::find_if(rooms_.begin(), rooms_.end(),
                                  [&](const DestinationRoom& room) { return room.device == device; });
  if (known != rooms_.end()) return static_cast<std::size_t>(known - rooms_.begin());
  struct statvfs status {};
  if (statvfs(path.c_str(), &status) != 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kPlanNoFileSystem, path, std::strerror(error));
    return kNone;
  }
  DestinationRoom& room = rooms_.emplace_back();
  room.path = topOf(device, path);
  const bool isRoot = geteuid() == 0;  // may use what is kept back from others
  room.device = device;
  room.blockSize = std::max<std::int64_t>(1, count(status.f_frsize));
  room.freeBytes = Blocks{count(isRoot ? status.f_bfree : status.f_bavail)} * room.blockSize;
  room.freeInodes = count(isRoot ? status.f_ffree : status.f_favail);
  room.countsInodes = status.f_files != 0;
  return rooms_.size() - 1;
}

void DestinationRooms::check() const {
  for (const DestinationRoom& room : rooms_) {
    if (room.neededBytes > room.freeBytes) {
      logger->log(kUrgent, msg::kPlanNoRoom, room.path, sizeText(room.neededBytes - room.freeBytes));
    }
    if (room.countsInodes && room.neededInodes > room.freeInodes) {
      logger->log(kUrgent, msg::kPlanNoInodes, room.path, room.neededInodes - room.freeInodes);
    }
  }
}

void DestinationRooms::tell() const {
  for (const DestinationRoom& room : rooms_) {
    const std::string needed = sizeText(std::max<Blocks>(room.neededBytes, 0));
    if (room.countsInodes) {
      logger->output(msg::kPlanRoom, room.path, needed, room.neededInodes, sizeText(room.freeBytes),
                     room.freeInodes);
    } else {
      logger->output(msg::kPlanRoomBytes, room.path, needed, sizeText(room.freeBytes));
    }
  }
}

}  // namespace tamrix
