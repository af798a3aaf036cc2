#include "reader/record/extent.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>

#include "reader/record/file_c.h"

namespace tamrix {

namespace {

// The sort keys, next to the pointer, so that comparing does not fetch every extent.
struct SortEntry {
  std::uint32_t volume;  // rank of the volume's UUID
  signed char partition;
  std::int64_t startBlock;
  Extent* extent;
};

// Thrown to leave a sort.
struct Stopped {};
constexpr std::uint32_t kStepsBetweenLooks = 4096;

bool entryLess(const SortEntry& a, const SortEntry& b) {
  if (a.volume != b.volume) return a.volume < b.volume;
  if (a.partition != b.partition) return a.partition < b.partition;
  if (a.partition != Extent::kNoPartition && a.startBlock != b.startBlock) return a.startBlock < b.startBlock;
  return extentLess(*a.extent, *b.extent);
}

}  // namespace

bool extentLess(const Extent& a, const Extent& b) {
  const int byVolume = std::strncmp(a.volumeUuid.data(), b.volumeUuid.data(), Extent::kUuidLength);
  if (byVolume != 0) return byVolume < 0;
  if (a.partition != b.partition) return a.partition < b.partition;
  if (a.partition == Extent::kNoPartition) return std::strcmp(a.file->fileName, b.file->fileName) < 0;
  if (a.startBlock != b.startBlock) return a.startBlock < b.startBlock;
  return a.offset < b.offset;
}

bool sortInTapeOrder(std::vector<Extent*>& extents, const std::function<bool()>& isStopped) {
  std::uint32_t steps = 0;
  const auto step = [&] {
    if (++steps % kStepsBetweenLooks == 0 && isStopped()) throw Stopped();
  };
  try {
    std::map<std::string_view, std::uint32_t> volumes;
    for (const Extent* extent : extents) {
      step();
      volumes.try_emplace(extent->volumeUuid.data());
    }
    std::uint32_t rank = 0;
    for (auto& volume : volumes) volume.second = rank++;

    std::vector<SortEntry> entries;
    entries.reserve(extents.size());
    for (Extent* extent : extents) {
      step();
      entries.push_back(
          {volumes.at(extent->volumeUuid.data()), extent->partition, extent->startBlock, extent});
    }
    std::stable_sort(entries.begin(), entries.end(), [&](const SortEntry& a, const SortEntry& b) {
      step();
      return entryLess(a, b);
    });
    std::transform(entries.begin(), entries.end(), extents.begin(),
                   [](const SortEntry& entry) { return entry.extent; });
    return true;
  } catch (const Stopped&) {
    return false;
  }
}

}  // namespace tamrix
