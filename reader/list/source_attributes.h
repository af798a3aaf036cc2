// What the listing reads from a source's extended attributes; see xattr(7).
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "reader/record/extent.h"
#include "reader/record/file_c.h"

namespace tamrix {

// Where a file lies on tape.
struct TapePosition {
  std::array<char, Extent::kUuidLength + 1> volumeUuid{};
  signed char partition = 0;
  std::int64_t startBlock = 0;
};

// Purpose: the attributes of one source. read does not log, so a helper thread may call it early; the others
// log what was read, or was not, as if it were read just then.
// Threads: one at a time. Lifetime: a listing; one object serves file after file and keeps its buffers.
class SourceAttributes {
 public:
  // Reads the names and values of the user attributes, each whole whatever its size, and those that tell the
  // position on tape, which a volume need not list. Drops what was read before.
  void read(const char* path);

  // Adds the user attributes that were read to the record, with a warning for each that could not be read.
  // `path` is the record's source path.
  void collect(FileC& file, const std::string& path) const;

  // Tells the position that a mounted volume shows of the source. Returns false when it shows none.
  // A start block that is no number counts as 0, a partition that can't be read as 0.
  bool tellPosition(TapePosition& position) const;

 private:
  // What came of reading one attribute: an error number, or a value in values_, with a NUL behind it.
  struct Reading {
    int error = 0;
    std::size_t at = 0;
    std::size_t length = 0;
  };

  Reading readValue(const char* path, const char* name);
  // As readValue, but takes a value that was read with the user attributes.
  Reading readPosition(const char* path, const char* name);
  const char* text(const Reading& reading) const { return values_.data() + reading.at; }

  std::vector<char> names_;  // the first listed_ bytes are in use
  std::size_t listed_ = 0;
  int listError_ = 0;         // why the names could not be listed; 0 when they were
  std::vector<char> values_;  // the first used_ bytes are in use
  std::size_t used_ = 0;
  std::vector<Reading> users_;  // of the user attributes, in the order of their names
  Reading startBlock_;
  Reading partition_;   // read when there is a start block, as is the next
  Reading volumeUuid_;  // under either of its names
};

// Whether the nearest existing object on `path` is on a volume of the expected software vendor.
bool isSoftwareVendorVOQ(const std::string& path);

}  // namespace tamrix
