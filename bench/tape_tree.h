// Trees of many small files with the attributes of a tape volume, for benchmarks of what costs time per file.
#pragma once

#include <cstddef>
#include <string>

namespace tamrix::bench {

inline constexpr int kFilesPerDirectory = 1000;
inline constexpr int kTreeFileSize = 3;  // bytes

// The names that the file with this number has in a tree.
std::string treeDirectory(int file);
std::string treeFile(int file);

// How many attributes a file has: those of its position, or some more, as on a volume.
enum class TapeAttributes : std::size_t { kPosition = 3, kAll = 7 };

// Makes one file. Returns false when the file system takes no user attributes; throws std::system_error.
bool makeTapeFile(const std::string& path, int number, TapeAttributes kind = TapeAttributes::kAll);

// Makes ROOT/dirNNN/file-NNNNNNN, `count` files, with all cores; ROOT tells a block size. Throws as above.
void makeTapeTree(const std::string& root, int count, TapeAttributes kind = TapeAttributes::kAll);

}  // namespace tamrix::bench
