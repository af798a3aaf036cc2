// The sample batch files: one set for the reader, the schema, the documentation and the fuzzer.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "batch/batch_xml_reader.h"

namespace tamrix::test {

// The file names in samples/accepted, samples/refused or docs/examples, in order.
inline std::vector<std::string> namesIn(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

inline const std::string kAccepted = TAMRIX_SOURCE_DIR "/tests/batch/samples/accepted";
inline const std::string kRefused = TAMRIX_SOURCE_DIR "/tests/batch/samples/refused";
inline const std::string kExamples = TAMRIX_SOURCE_DIR "/docs/examples";

// What both passes over one file gave.
struct BothPasses {
  explicit BothPasses(const std::string& fileName) {
    BatchXmlReader reader(fileName);
    paramResult = reader.getFileListInBatch(params);
    dataResult = reader.getFileListInBatch(pairs);
    version = reader.version();
  }
  bool accepted() const { return paramResult == 0 && dataResult == 0; }

  int paramResult = 1;
  int dataResult = 1;
  std::vector<BatchParam> params;
  std::vector<BatchPair> pairs;
  std::string version;
};

}  // namespace tamrix::test
