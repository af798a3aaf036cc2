// What a plan needs of the file systems that it writes to, against what they have.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "pipeline/run/tape_layout.h"

namespace tamrix {

struct FileC;

// One file system.
struct DestinationRoom {
  dev_t device = 0;
  std::string path;  // the uppermost directory of it on the way to the first file
  std::int64_t blockSize = 1;

  Blocks neededBytes = 0;  // in whole blocks, less what overwritten files give back; attributes not counted
  std::int64_t neededInodes = 0;
  Blocks freeBytes = 0;  // for this user
  std::int64_t freeInodes = 0;
  bool countsInodes = false;  // some file systems have no fixed number of them
};

// Purpose: adds up what the files of a plan need, and finds the directories and files that can't be written,
// each reported once at kUrgent. Keeps the path of each destination directory. Threads: one. Lifetime: any.
class DestinationRooms {
 public:
  // Takes a file that would be copied.
  void add(const FileC& file);
  // Logs at kUrgent what is not enough.
  void check() const;
  // Prints the figures.
  void tell() const;

  const std::vector<DestinationRoom>& all() const { return rooms_; }

 private:
  static constexpr std::size_t kNone = ~std::size_t{0};

  // The place in rooms_ of the file system that a directory is, or would be made, on; kNone when the system
  // does not tell, which is reported.
  std::size_t roomOf(std::string_view directory);
  std::size_t findRoom(std::string_view directory);
  std::size_t roomOn(dev_t device, const std::string& path);
  static void addFile(DestinationRoom& room, const FileC& file);
  void checkExisting(const FileC& file, const std::string& path);

  std::vector<DestinationRoom> rooms_;
  std::map<std::string, std::size_t, std::less<>> byDirectory_;
  std::string lastDirectory_;
  std::size_t lastRoom_ = kNone;
};

}  // namespace tamrix
