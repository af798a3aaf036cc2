// A directory of its own for a test, removed with all that is in it.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tamrix::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // The absolute path of `name` in it.
  std::string operator/(std::string_view name) const { return path_ + "/" + std::string(name); }

  // Makes the file `name` (and the directories above it) with `content`; returns its absolute path.
  std::string file(std::string_view name, std::string_view content = "") const;
  // As file, with the extended attributes of a file on a mounted volume.
  std::string tapeFile(std::string_view name, std::string_view content, std::string_view volumeUuid,
                       char partition, long long startBlock) const;
  // Makes the batch file "batch.xml" with these parameters, an element each, and absolute source and
  // destination paths; returns its path.
  std::string batchFile(const std::vector<std::pair<std::string, std::string>>& pairs,
                        const std::string& params = "") const;

 private:
  std::string path_;
};

// The whole content of a file; empty when it can't be read.
std::string readFile(const std::string& path);

// Sets a user extended attribute; the test fails where the file system refuses it.
void setXattr(const std::string& path, const std::string& name, std::string_view value);
// The value of an extended attribute, "<none>" when there is none.
std::string getXattr(const std::string& path, const std::string& name);

}  // namespace tamrix::test
