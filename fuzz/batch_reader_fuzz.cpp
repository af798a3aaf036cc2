// Any bytes as a batch file: no crash, no hang, no undefined behaviour, and what is accepted holds what the
// listers rely on.
//
//     batch_reader_fuzz -max_len=4096 CORPUS tests/batch/samples/accepted tests/batch/samples/refused
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "batch/batch_xml_reader.h"
#include "log/logger.h"

namespace {

using tamrix::BatchPair;
using tamrix::BatchParam;
using tamrix::BatchXmlReader;

void require(bool holds, const char* what) {
  if (holds) return;
  std::cerr << "broken: " << what << '\n';
  std::abort();
}

// The logger of the whole run. All levels, so that the messages' arguments are read too.
tamrix::Logger* makeLogger() {
  auto* made = new tamrix::Logger(open("/dev/null", O_WRONLY | O_CLOEXEC));
  require(made->LoadMessage("tamrix") == 0 && made->init(tamrix::kDebug) == 0, "the logger is made");
  return made;
}

// `data` as a file that has a name.
class MemoryFile {
 public:
  MemoryFile(const std::uint8_t* data, std::size_t size) : fd_(memfd_create("batch", MFD_CLOEXEC)) {
    require(write(fd_, data, size) == static_cast<ssize_t>(size), "the input is written");
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  std::string name() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  const int fd_;
};

// At least one character on each side of a '/'.
bool isJoined(const std::string& path) {
  const std::size_t slash = path.find('/', 1);
  return slash != std::string::npos && slash + 1 < path.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (tamrix::logger == nullptr) tamrix::logger = makeLogger();
  const MemoryFile file(data, size);
  BatchXmlReader reader(file.name());

  std::vector<BatchParam> params;
  const int paramResult = reader.getFileListInBatch(params);
  require(paramResult == 0 || paramResult == -1, "the parameter pass ends with 0 or -1");
  for (const BatchParam& param : params)
    require(!param.name.empty() && !param.value.empty(), "options are whole");

  std::vector<BatchPair> pairs;
  const int dataResult = reader.getFileListInBatch(pairs);
  require(dataResult == 0 || dataResult == -1, "the data pass ends with 0 or -1");
  for (const BatchPair& pair : pairs) {
    require(isJoined(pair.source) && isJoined(pair.destination), "paths are joined of two parts");
  }

  std::vector<BatchPair> again;
  require(reader.getFileListInBatch(again) == dataResult && again.size() == pairs.size(), "passes repeat");
  return 0;
}
