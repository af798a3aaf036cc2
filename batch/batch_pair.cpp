#include "batch/batch_pair.h"

namespace tamrix {

std::optional<BatchPair> composePair(const std::string& sourceDirectory, const std::string& sourceName,
                                     const std::string& destinationDirectory,
                                     const std::string& destinationName, SourceKind kind) {
  if (sourceDirectory.empty() || sourceName.empty() || destinationDirectory.empty() ||
      destinationName.empty()) {
    return std::nullopt;
  }
  // Kept: a directory that already ends in '/' gives a path with "//", seen in messages and status lines.
  return BatchPair{sourceDirectory + "/" + sourceName, destinationDirectory + "/" + destinationName, kind};
}

}  // namespace tamrix
