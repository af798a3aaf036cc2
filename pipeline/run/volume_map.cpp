#include "pipeline/run/volume_map.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace tamrix {

namespace {

constexpr MapCells kAsciiCells = {"#", "+", ".", "-"};
constexpr MapCells kUnicodeCells = {"\u2588", "\u2593", "\u2591", "\u2500"};
constexpr int kScaleStep = 20;  // cells between two figures of the scale, at least

// One bar. Walks cells and runs together, so it takes as long as both have members.
std::string drawBar(const PartitionLayout& partition, double blocksPerCell, int width, const MapCells& cells,
                    const char* behind) {
  std::string bar;
  auto run = partition.runs.begin();
  for (int cell = 0; cell < width; ++cell) {
    const double from = cell * blocksPerCell;
    const double to = from + blocksPerCell;
    double data = 0;
    while (run != partition.runs.end()) {
      const auto start = static_cast<double>(run->start);
      const auto end = static_cast<double>(run->end);
      data += std::max(0.0, std::min(end, to) - std::max(start, from));
      if (end > to) break;
      ++run;
    }
    if (data > 0) {
      // The part of the cell behind the partition's last file is no gap.
      const double used = std::min(to, static_cast<double>(partition.end)) - from;
      bar += data >= used * (1 - 1e-9) ? cells.data : cells.mixed;
    } else {
      bar += from < static_cast<double>(partition.end) ? cells.gap : behind;
    }
  }
  return bar;
}

std::string drawScale(double bytesPerCell, int width) {
  std::string scale;
  for (int cell = 0; cell < width; cell += kScaleStep) {
    std::string figure = gigabytes(static_cast<Blocks>(cell * bytesPerCell));
    figure.insert(figure.begin(), '|');
    if (cell + static_cast<int>(figure.size()) > width) break;
    scale.resize(static_cast<std::size_t>(cell), ' ');
    scale += figure;
  }
  return scale;
}

}  // namespace

const MapCells& mapCells(MapCharacters characters) {
  return characters == MapCharacters::kUnicode ? kUnicodeCells : kAsciiCells;
}

VolumeMap drawVolume(const TapeLayout& layout, std::uint64_t freeBytes, int width, MapCharacters characters) {
  Blocks longest = 1;
  for (const PartitionLayout& partition : layout.partitions()) longest = std::max(longest, partition.end);
  const double blocks =
      static_cast<double>(longest) + static_cast<double>(freeBytes) / static_cast<double>(layout.blockSize());
  const double blocksPerCell = blocks / width;
  VolumeMap map;
  for (const PartitionLayout& partition : layout.partitions()) {
    const MapCells& cells = mapCells(characters);
    map.bars.push_back(
        drawBar(partition, blocksPerCell, width, cells, partition.end == longest ? cells.free : " "));
  }
  map.scale = drawScale(blocksPerCell * layout.blockSize(), width);
  return map;
}

std::string gigabytes(Blocks bytes) {
  const double value = static_cast<double>(bytes) / 1e9;
  const int digits = value >= 100 || value == 0 ? 0 : value >= 1 ? 1 : 3;
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%.*f", digits, value);
  return text.data();
}

}  // namespace tamrix
