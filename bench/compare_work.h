// What bench/compare copies, and the fastest that this machine could.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tamrix::bench {

// A tree of files to copy.
struct Work {
  std::string name;
  std::vector<std::int64_t> sizes;  // bytes, one a file
  bool sparse = false;              // 64 KiB of data at the start of each MiB, holes between
  // What tamrix is to reach: its speed as a multiple of cp's, rsync's and any other's; from a mounted volume,
  // of cp's and rsync's; in memory, the share of the limit's speed. 0: none.
  double overCp = 0;
  double overCpInMemory = 0;
  double overRsync = 0;
  double overOthers = 0;
  double overAllFromVolume = 0;  // 0: not copied from there
  double ofLimitInMemory = 0;
  // And what it is not to exceed: its processor time as a multiple of cp's, its memory. 0: no target.
  double cpuOverCp = 1.3;
  double cpuOverCpInMemory = 1.3;
  double mostPeakMiB = 0;
  bool targetsWithAttributesOnly = false;
  bool scattered = false;  // neighbours in a directory lie far from each other on tape; else in one piece
};

// The kinds of work, sizes divided by `scale`.
std::vector<Work> allWork(std::int64_t scale);

// Makes the files in directory `root` (which must not exist), 200 a directory, with the attributes of a tape
// volume when asked for. Returns false when the file system takes no user attributes.
bool makeWork(const Work& work, const std::string& root, bool attributes);

// Writes a line for each file, as model/tape_volume_settings.h wants it.
void writeLayout(const Work& work, const std::string& file);

// Whether two trees hold the same files, of the same bytes and modification times, and with the same user
// attributes when those are asked for.
bool sameTrees(const std::string& a, const std::string& b, bool attributes);

// The slower of the two, in seconds: reading all files of `root` through one small buffer, and writing as
// many files of the same sizes (holes as holes) from memory into `target`, which must not exist.
double limitSeconds(const Work& work, const std::string& root, const std::string& target);

// What tamrix's writer must do at least, in seconds: one thread that makes the files in `target`, which must
// not exist, locks them, writes as many bytes from memory, and gives them times and, if asked for,
// attributes.
double writerSeconds(const Work& work, const std::string& target, bool attributes);

// The bytes of memory that a copy of the work takes, at most.
std::size_t memoryOf(const Work& work);

// Blocks of 512 bytes that the files below `root` take.
std::int64_t blocksUsed(const std::string& root);

}  // namespace tamrix::bench
