// Pairs from a batch file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "batch/batch_xml_reader.h"
#include "reader/list/file_lister.h"

namespace tamrix {

// The data section of the batch file that the option batchfile names, as a sequence of pairs in document
// order: relative paths made absolute, sources with wildcards replaced by the files that match. Threads and
// lifetime as the base.
class BatchFileLister : public FileLister {
 public:
  BatchFileLister(PipelineGlobals& globals, const RunOptions& options);
  ~BatchFileLister() override;

  // Reads the file and expands its pairs. Returns 0, also for no pairs; 1, having logged why, when the file
  // is refused or is not of version 1.0; 1 when the stop flag is set meanwhile.
  [[nodiscard]] int init() override;
  // -1: a path of more than 1024 characters.
  [[nodiscard]] int getNextFile() override;

 private:
  // Makes both paths of the pair absolute, from the working directory. Returns false, having logged why, when
  // there is none.
  bool makeAbsolute(BatchPair& pair);
  [[nodiscard]] int appendPair(const BatchPair& pair);
  [[nodiscard]] int expand(const BatchPair& pair);

  std::string currentDir_;
  // Of init only; members so that a stop doesn't wait until millions of pieces are given back.
  std::optional<BatchXmlReader> reader_;
  std::vector<BatchPair> read_;
  PathList matches_;
};

}  // namespace tamrix
