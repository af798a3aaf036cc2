// Pairs from a source directory, a file-name pattern and a destination directory.
#pragma once

#include "reader/list/file_lister.h"

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

 private:
  PathList found_;  // of init only; a member so that a stop doesn't wait until it is given back
};

}  // namespace tamrix
