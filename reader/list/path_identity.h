// Which file a path means, whatever links and spelling lead to it.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace tamrix {

// The nearest existing object on a path, by device and inode, and how much of the path led to it. Two paths
// mean the same file when the objects are the same and what is left of the paths reads the same.
struct PathIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  std::size_t known = 0;  // bytes of the path that lead to the object; the whole path when the file exists

  bool exists(std::string_view path) const { return known == path.size(); }
  // What is left of `path` behind the existing object; empty when the file exists.
  std::string_view rest(std::string_view path) const { return path.substr(known); }
};

// Whether two paths read the same after doubled slashes and "." components are folded.
bool samePathText(std::string_view a, std::string_view b);
// Equal for paths that samePathText finds equal.
std::size_t pathTextHash(std::string_view path);

// Purpose: finds identities at the price of one stat(2) per path, while the paths' directories repeat.
// Threads: one. Lifetime: a listing; a directory made meanwhile may go unseen, with
// what is in it.
class PathResolver {
 public:
  // The identity of `path`; `status` is set when the file exists. errno is stat's when it does not.
  PathIdentity resolve(const std::string& path, struct stat& status);

 private:
  // Sets lastDirectory_ and lastIdentity_; the latter has no inode when not even the root can be examined.
  void resolveDirectory(std::string_view directory);

  std::string lastDirectory_;
  PathIdentity lastIdentity_;
  bool lastIsMissing_ = false;  // lastDirectory_ does not exist, so nothing in it does
};

}  // namespace tamrix
