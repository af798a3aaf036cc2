#include "reader/list/path_identity.h"

#include <cerrno>

namespace tamrix {

namespace {

// Walks over the components of a path, leaving out empty ones and ".".
class Components {
 public:
  explicit Components(std::string_view path) : rest_(path) {}

  // The next component; empty at the end.
  std::string_view next() {
    for (;;) {
      while (rest_.starts_with('/')) rest_.remove_prefix(1);
      if (rest_.empty()) return {};
      const std::string_view component = rest_.substr(0, rest_.find('/'));
      rest_.remove_prefix(component.size());
      if (component != ".") return component;
    }
  }

 private:
  std::string_view rest_;
};

// The length of `path` without its last component and the slashes before that.
std::size_t parentLength(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? 0 : slash;
}

}  // namespace

bool samePathText(std::string_view a, std::string_view b) {
  if (a == b) return true;
  Components left(a);
  Components right(b);
  for (;;) {
    const std::string_view component = left.next();
    if (component != right.next()) return false;
    if (component.empty()) return true;
  }
}

std::size_t pathTextHash(std::string_view path) {
  std::size_t hash = 0;
  Components components(path);
  for (std::string_view component = components.next(); !component.empty(); component = components.next()) {
    hash = hash * 31 + std::hash<std::string_view>()(component);
  }
  return hash;
}

PathIdentity PathResolver::resolve(const std::string& path, struct stat& status) {
  const std::string_view directory = std::string_view(path).substr(0, parentLength(path));
  int error = ENOENT;
  if (!lastIsMissing_ || directory != lastDirectory_) {
    if (stat(path.c_str(), &status) == 0) return {status.st_dev, status.st_ino, path.size()};
    error = errno;
    resolveDirectory(directory);
  }
  errno = error;
  return lastIdentity_;
}

void PathResolver::resolveDirectory(std::string_view directory) {
  if (directory == lastDirectory_ && lastIdentity_.inode != 0) return;
  lastDirectory_ = directory;
  lastIdentity_ = {};
  struct stat status {};
  std::string existing(directory);
  lastIsMissing_ = false;
  while (!existing.empty() && stat(existing.c_str(), &status) != 0) {
    if (existing.size() == directory.size()) lastIsMissing_ = errno == ENOENT;
    existing.resize(parentLength(existing));
  }
  // An absolute path comes down to the root, a relative one to the working directory.
  if (existing.empty() && stat(directory.starts_with('/') || directory.empty() ? "/" : ".", &status) != 0) {
    lastIsMissing_ = false;
    return;
  }
  lastIdentity_ = {status.st_dev, status.st_ino, existing.size()};
}

}  // namespace tamrix
