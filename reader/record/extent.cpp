#include "reader/record/extent.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <string_view>

#include "reader/record/file_c.h"

namespace tamrix {

namespace {

// The sort keys, next to the pointer, so that comparing does not fetch every extent.
struct SortEntry {
  std::uint32_t volume;  // rank of the volume's UUID
  signed char partition;
  std::uint64_t key;  // see keyOf
  Extent* extent;
};

// How many bytes all names of extents without a position begin with: in series of names, these are most.
class SharedBeginning {
 public:
  void add(const Extent& extent) {
    if (extent.partition != Extent::kNoPartition) return;
    const std::string_view name = extent.file->fileName;
    if (!text_) text_ = name;
    const auto differs = std::mismatch(text_->begin(), text_->end(), name.begin(), name.end()).first;
    text_ = text_->substr(0, static_cast<std::size_t>(differs - text_->begin()));
  }
  std::size_t length() const { return text_ ? text_->size() : 0; }

 private:
  std::optional<std::string_view> text_;
};

// A number whose order is that of start blocks or, without a position, of the names' first bytes behind the
// `shared` ones that all begin with; equal where those are.
std::uint64_t keyOf(const Extent& extent, std::size_t shared) {
  if (extent.partition != Extent::kNoPartition) {
    constexpr std::uint64_t kSign = std::uint64_t{1} << 63;
    return static_cast<std::uint64_t>(extent.startBlock) ^ kSign;
  }
  std::uint64_t key = 0;
  const char* name = extent.file->fileName + shared;
  for (std::size_t i = 0; i < sizeof(key); ++i) {
    key = key << 8 | static_cast<unsigned char>(*name);
    if (*name != '\0') ++name;
  }
  return key;
}

// Thrown to leave a sort.
struct Stopped {};
constexpr std::uint32_t kStepsBetweenLooks = 4096;

bool entryLess(const SortEntry& a, const SortEntry& b) {
  if (a.volume != b.volume) return a.volume < b.volume;
  if (a.partition != b.partition) return a.partition < b.partition;
  if (a.key != b.key) return a.key < b.key;
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
    SharedBeginning shared;
    for (const Extent* extent : extents) {
      step();
      volumes.try_emplace(extent->volumeUuid.data());
      shared.add(*extent);
    }
    std::uint32_t rank = 0;
    for (auto& volume : volumes) volume.second = rank++;

    std::vector<SortEntry> entries;
    entries.reserve(extents.size());
    for (Extent* extent : extents) {
      step();
      entries.push_back({volumes.at(extent->volumeUuid.data()), extent->partition,
                         keyOf(*extent, shared.length()), extent});
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
