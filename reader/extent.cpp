#include "reader/extent.h"

#include <cstring>

#include "reader/file_c.h"

namespace tamrix {

bool extentLess(const Extent& a, const Extent& b) {
  const int byVolume = std::strncmp(a.volumeUuid.data(), b.volumeUuid.data(), Extent::kUuidLength);
  if (byVolume != 0) return byVolume < 0;
  if (a.partition == '?') return std::strcmp(a.file->fileName, b.file->fileName) < 0;
  if (a.partition != b.partition) return a.partition < b.partition;
  if (a.startBlock != b.startBlock) return a.startBlock < b.startBlock;
  return a.offset < b.offset;
}

}  // namespace tamrix
