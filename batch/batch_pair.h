// What a batch file says, as its reader hands it out.
#pragma once

#include <optional>
#include <string>

namespace tamrix {

// What the last component of a source path is: the name of one file, or a pattern for names. In directories,
// wildcards stand for themselves either way.
enum class SourceKind { kName, kPattern };

// One copy request.
struct BatchPair {
  std::string source;
  std::string destination;
  SourceKind kind = SourceKind::kName;
};

// One option: its name and its value as they stand in the file.
struct BatchParam {
  std::string name;
  std::string value;
};

// The pair that copies `sourceName` of `sourceDirectory` to `destinationName` in `destinationDirectory`;
// nothing when one of the four texts is empty.
std::optional<BatchPair> composePair(const std::string& sourceDirectory, const std::string& sourceName,
                                     const std::string& destinationDirectory,
                                     const std::string& destinationName, SourceKind kind);

}  // namespace tamrix
