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
};

// The kinds of work, sizes divided by `scale`.
std::vector<Work> allWork(std::int64_t scale);

// Makes the files in directory `root` (which must not exist), 200 a directory, with the attributes of a tape
// volume when asked for. Returns false when the file system takes no user attributes.
bool makeWork(const Work& work, const std::string& root, bool attributes);

// Whether two trees hold the same files, of the same bytes and modification times, and with the same user
// attributes when those are asked for.
bool sameTrees(const std::string& a, const std::string& b, bool attributes);

// The slower of the two, in seconds: reading all files of `root` through one small buffer, and writing as
// many files of the same sizes (holes as holes) from memory into `target`, which must not exist.
double limitSeconds(const Work& work, const std::string& root, const std::string& target);

// Blocks of 512 bytes that the files below `root` take.
std::int64_t blocksUsed(const std::string& root);

}  // namespace tamrix::bench
