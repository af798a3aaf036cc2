// One entry of the copy list: a piece of a file and where it lies on tape.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

namespace tamrix {

struct FileC;

// Filled by the copy list, constant from then on. Lives as long as its file's record.
struct Extent {
  static constexpr std::size_t kUuidLength = 36;
  static constexpr signed char kNoPartition = '?';

  std::array<char, kUuidLength + 1> volumeUuid{};  // NUL-terminated; empty without a tape position
  signed char partition = 0;    // LTFS partition letter; kNoPartition without a tape position
  std::int64_t startBlock = 0;  // tape block, or the place in the listing without one
  std::int64_t byteCount = 0;   // bytes, as listed
  std::int64_t offset = 0;      // where the extent starts in the file
  FileC* file = nullptr;
};

// Whether `a` is read before `b`: by volume, partition, start block, offset. Files without a position have
// '?' for a partition and are ordered by base name among themselves. A strict weak order, as a sort needs.
bool extentLess(const Extent& a, const Extent& b);

// Sorts by extentLess; extents of which neither is less keep their order. Returns false, with `extents` as
// they were, when `isStopped` said so; it is asked every few thousand steps.
[[nodiscard]] bool sortInTapeOrder(std::vector<Extent*>& extents, const std::function<bool()>& isStopped);

}  // namespace tamrix
