// What a batch file says, as its reader hands it out.
#pragma once

#include <optional>
#include <string>

namespace tamrix {

// One copy request: a source path, which may hold wildcards, and a destination path.
struct BatchPair {
  std::string source;
  std::string destination;
};

// One option: its name and its value as they stand in the file.
struct BatchParam {
  std::string name;
  std::string value;
};

// The pair that copies `sourceName` of `sourceDirectory` to `destinationName` in `destinationDirectory`;
// nothing when one of the four is empty.
std::optional<BatchPair> composePair(const std::string& sourceDirectory, const std::string& sourceName,
                                     const std::string& destinationDirectory,
                                     const std::string& destinationName);

}  // namespace tamrix
