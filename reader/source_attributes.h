// What the listing reads from a source's extended attributes; see xattr(7).
#pragma once

#include <string>
#include <vector>

#include "reader/extent.h"
#include "reader/file_c.h"

namespace tamrix {

// Where a file lies on tape.
struct TapePosition {
  std::array<char, Extent::kUuidLength + 1> volumeUuid{};
  signed char partition = 0;
  std::int64_t startBlock = 0;
};

// Purpose: reads attributes of many files through buffers that are kept between files.
// Threads: one. Lifetime: a listing.
class SourceAttributes {
 public:
  // Adds the source's user attributes to the record, each whole whatever its size. One that can't be read
  // costs a warning, the others are still collected.
  void collect(FileC& file);

  // Reads the position that a mounted volume shows of the source. Returns false when it shows none.
  // A start block that is no number counts as 0, a partition that can't be read as 0.
  bool readPosition(const FileC& file, TapePosition& position);

  // Whether the nearest existing object on `path` is on a volume of the expected software vendor.
  bool isSoftwareVendorVOQ(const std::string& path);

 private:
  // Reads attribute `name` of `path` into value_. Returns false, with errno set, when it can't be read.
  bool read(const char* path, const char* name);
  // As read, but takes what collect has already read of the file.
  bool readCollected(const FileC& file, const char* name);

  std::vector<char> names_;
  std::vector<char> buffer_;
  std::string value_;
};

}  // namespace tamrix
