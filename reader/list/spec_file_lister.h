// Pairs from a source directory, a file-name pattern and a destination directory.
#pragma once

#include <string>

#include "reader/list/file_lister.h"
#include "reader/list/numbered_queue.h"

namespace tamrix {

// The options srcpath, srcspec, dstpath and recursive as a sequence of pairs: each file keeps its
// path relative to the source directory below the destination directory. Threads and lifetime as the base.
class SpecFileLister : public FileLister {
 public:
  SpecFileLister(PipelineGlobals& globals, const RunOptions& options);
  ~SpecFileLister() override;

  // Lists the matching files; an empty or missing directory yields none. Returns 0.
  [[nodiscard]] int init() override;
  // -1: a source that is not absolute, or a path of more than 1024 characters.
  [[nodiscard]] int getNextFile() override;
  std::size_t size() const override;
  void pair(std::size_t number, std::string& source, std::string& destination) const override;

 private:
  // The path of `source` below the source directory, below the destination directory.
  void setDestination(const std::string& source, std::string& destination) const;

  NumberedQueue<std::string> matched_;  // sources; a destination follows from its source
};

}  // namespace tamrix
