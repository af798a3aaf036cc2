// The sample batch files: one set for the reader, the schema, the documentation and the fuzzer.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "batch/batch_xml_reader.h"

namespace tamrix::test {

inline const std::filesystem::path kSource = TAMRIX_SOURCE_DIR;
inline const std::string kAccepted = "tests/batch/samples/accepted";
inline const std::string kRefused = "tests/batch/samples/refused";
inline const std::string kExamples = "docs/examples";

// The files in these directories, in order, as paths below kSource: made the current directory.
inline std::vector<std::string> filesIn(const std::vector<std::string>& directories) {
  std::filesystem::current_path(kSource);
  std::vector<std::string> files;
  for (const std::string& directory : directories) {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// What both passes over one file gave.
struct BothPasses {
  explicit BothPasses(const std::string& fileName) {
    BatchXmlReader reader(fileName);
    paramResult = reader.getFileListInBatch(params);
    dataResult = reader.getFileListInBatch(pairs);
    version = reader.version();
  }
  bool accepted() const { return paramResult == 0 && dataResult == 0; }

  std::vector<BatchParam> params;
  std::vector<BatchPair> pairs;
  int paramResult = 1;
  int dataResult = 1;
  std::string version;
};

}  // namespace tamrix::test
