// Writing a batch file that says exactly which files are copied where.
//
// Each copy is an sf element: no wildcard, no walk, and the paths that the reader makes of it are those that
// were handed in, byte by byte.
#pragma once

#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "batch/batch_pair.h"

namespace tamrix {

// One copy as a batch file holds it; refers to the paths it was made of. See docs/batch-files.md.
struct BatchEntry {
  std::string_view sourceDirectory;       // srcpath
  std::string_view name;                  // sf
  std::string_view destinationDirectory;  // dstpath
  std::string_view rename;                // empty: the destination has the source's name
};

// Splits the paths of one copy. The components that they end with alike all go into the name, so that the
// files of a tree share their directories. Returns nothing for what a batch file can't hold: a source name
// with '*' or '?', a path with a control character or with bytes that are no UTF-8, a path without a directory.
std::optional<BatchEntry> batchEntry(std::string_view source, std::string_view destination);

// Purpose: writes one batch file: begin, add for each copy, end with the options. Entries that follow each
// other and have the same directories share a file element. Memory does not grow with the file.
// Threads: one. Lifetime: that of the stream, which the caller opens and closes; a partial file is the
// caller's to remove. Operations return 0 or an error number, and log nothing.
class BatchWriter {
 public:
  explicit BatchWriter(std::FILE& stream) : stream_(stream) {}

  [[nodiscard]] int begin();
  [[nodiscard]] int add(const BatchEntry& entry);
  // The names of `params` are those of elements.
  [[nodiscard]] int end(std::span<const BatchParam> params);

 private:
  void endFile();
  void writeElement(std::string_view indent, std::string_view name, std::string_view text);
  void writeEscaped(std::string_view text);
  void write(std::string_view text);

  std::FILE& stream_;
  std::string sourceDirectory_;  // of the open file element; empty: none is open
  std::string destinationDirectory_;
  int error_ = 0;  // the first one; nothing is written after it
};

}  // namespace tamrix
