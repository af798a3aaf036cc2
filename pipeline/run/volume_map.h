// The picture of a volume: a bar for each partition and a scale.
#pragma once

#include <string>
#include <vector>

#include "pipeline/run/tape_layout.h"

namespace tamrix {

enum class MapCharacters { kAscii, kUnicode };

// What the cells of a bar are drawn with.
struct MapCells {
  const char* data;   // nothing but data
  const char* mixed;  // data and gaps
  const char* gap;
  const char* free;  // behind the last file
};
const MapCells& mapCells(MapCharacters characters);

struct VolumeMap {
  std::vector<std::string> bars;  // one for each partition, all to the same scale
  std::string scale;              // in GB, for the line below the bars
};

// Draws the partitions with bars of `width` cells, 10 or more. `freeBytes` lie behind the largest partition;
// the room of the others is not known. A cell with any data shows it: it is a gap only if it holds none.
VolumeMap drawVolume(const TapeLayout& layout, std::uint64_t freeBytes, int width, MapCharacters characters);

// Bytes in GB (10^9) with as many digits as are of use, without the unit.
std::string gigabytes(Blocks bytes);

}  // namespace tamrix
