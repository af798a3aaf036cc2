// Which file a path means, whatever links and spelling lead to it.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace tamrix {

// The nearest existing object on a path, by device and inode, and how much of the path led to it. Two paths
// mean the same file when the objects are the same and what is left of the paths reads the same.
struct PathIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  std::size_t known = 0;  // bytes of the path that lead to the object; the whole path when the file exists
  // The missing part after the object, where it is not simply the rest of the path: a link or ".." is in
  // between.
  std::shared_ptr<const std::string> missing = nullptr;

  bool operator==(const PathIdentity&) const = default;
  bool exists(std::string_view path) const { return known == path.size(); }
  // What is left of `path` behind the existing object; empty when the file exists.
  std::string_view rest(std::string_view path) const {
    return missing != nullptr ? std::string_view(*missing) : path.substr(known);
  }
};

// How much of a path exists.
struct ExistingPart {
  std::size_t length;  // of the longest beginning, cut at slashes, that exists; 0 when none does
  int error;           // stat's error number for the whole path; 0 when it exists, or is empty
};
// `status` is that of the existing part.
ExistingPart existingPart(std::string_view path, struct stat& status);

// Whether two paths read the same after doubled slashes and "." components are folded.
bool samePathText(std::string_view a, std::string_view b);
// Equal for paths that samePathText finds equal.
std::size_t pathTextHash(std::string_view path);

// Purpose: finds identities at the price of one system call per path, while the paths' directories repeat.
// Threads: one. Lifetime: a listing. A directory that is made meanwhile may be missed, with what is in it.
class PathResolver {
 public:
  // The identity of `path`; `status` is set when the file exists. `error` is stat's when it does not, else 0.
  PathIdentity resolve(const std::string& path, struct stat& status, int& error);
  // The identity that `path` will have once its directories are made and it is opened for writing: in what is
  // missing of it "." and ".." are folded away, and a dangling link stands for the place that it leads to.
  PathIdentity resolveDestination(const std::string& path, struct stat& status, int& error);

 private:
  PathIdentity lookUp(const std::string& path, int (*examine)(const char*, struct stat*), struct stat& status,
                      int& error);
  // Sets lastDirectory_ and lastIdentity_; the latter has no inode when not even the root can be examined.
  void resolveDirectory(std::string_view directory);

  std::string lastDirectory_;
  PathIdentity lastIdentity_;
  bool lastIsMissing_ = false;  // lastDirectory_ does not exist, so nothing in it does
  bool lastIsHidden_ = false;   // what is missing of lastDirectory_ holds a dangling link or ".."
};

}  // namespace tamrix
