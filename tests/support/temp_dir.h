// A directory of its own for a test, removed with all that is in it.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

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
