// The path of a file, as lists of millions of files hold it.
#pragma once

#include <string>
#include <string_view>

namespace tamrix {

// Purpose: directories are few and names many. So a path is two pointers: to its directory, which is stored
// once per program and shared by all paths in it, and to its name, which a source and its destination may
// share.
// Threads: what stores something is for one thread at a time, as the arena is; the rest is for any.
// Lifetime: a value; what it points at lives until the process ends.
class FilePath {
 public:
  // The empty path.
  FilePath() = default;
  // Stores `path`. Throws std::bad_alloc.
  explicit FilePath(std::string_view path);
  // The path of a name in a directory that sharedDirectory returned; `name` lives until the process ends.
  FilePath(const char* directory, const char* name) : directory_(directory), name_(name) {}
  // Stores `path`, but not its name if that is the one of `other`. Throws std::bad_alloc.
  FilePath(std::string_view path, const FilePath& other);

  // The one copy of `directory`, a path's beginning up to and with its last slash. Throws std::bad_alloc.
  static const char* sharedDirectory(std::string_view directory);

  // Up to and with the last slash; empty when there is none. Equal pointers exactly for equal directories.
  const char* directory() const { return directory_; }
  const char* name() const { return name_; }
  // Makes `path` the whole path, in the memory that it has, if that is enough.
  void copyTo(std::string& path) const { path.assign(directory_).append(name_); }
  std::string text() const;

  // Both byte by byte, as of the whole paths.
  bool operator==(std::string_view path) const;
  bool operator<(const FilePath& other) const;

 private:
  static constexpr const char* kNothing = "";

  const char* directory_ = kNothing;
  const char* name_ = kNothing;
};

// Where a file is to be copied from and to.
struct FilePair {
  FilePath source;
  FilePath destination;
};

}  // namespace tamrix
