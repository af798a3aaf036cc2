// A file that is there when it is complete, or not at all.
#pragma once

#include <cstdio>
#include <string>

namespace tamrix {

// Purpose: writes a file under a temporary name beside its own, which it gets when it is complete, in place
// of an older one; without that, nothing of it stays. What a killed process leaves behind has the temporary
// name. Threads: one. Operations return 0 or an error number, and log nothing.
class WholeFile {
 public:
  WholeFile() = default;
  // Removes what is not complete.
  ~WholeFile();
  WholeFile(const WholeFile&) = delete;
  WholeFile& operator=(const WholeFile&) = delete;

  // Makes the temporary file. A path where something other than a regular file is, is refused. To be called
  // once.
  [[nodiscard]] int open(std::string path);
  // What is written goes here, buffered. REQUIRES: open returned 0; not yet completed.
  std::FILE& stream() { return *file_; }
  // Brings all to the disk and gives the file its name. REQUIRES: as stream.
  [[nodiscard]] int complete();

 private:
  std::string path_;
  std::string temporary_;  // empty: there is none
  std::FILE* file_ = nullptr;
};

}  // namespace tamrix
