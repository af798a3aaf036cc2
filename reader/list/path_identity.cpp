#include "reader/list/path_identity.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <optional>
#include <utility>
#include <vector>

namespace tamrix {

namespace {

constexpr int kMaxLinks = 40;  // as the kernel follows on one path

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

  // What next has not walked over yet.
  std::string_view rest() const { return rest_; }

 private:
  std::string_view rest_;
};

// The length of `path` without its last component and the slashes before that.
std::size_t parentLength(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? 0 : slash;
}

// As existingPart, but down to the root, or for a relative path the working directory; its length is 0.
// Nothing when not even that can be examined.
std::optional<ExistingPart> existingObject(std::string_view path, struct stat& status) {
  const ExistingPart part = existingPart(path, status);
  if (part.length != 0) return part;
  const bool isFromRoot = path.starts_with('/') || path.empty();
  if (stat(isFromRoot ? "/" : ".", &status) != 0) return std::nullopt;
  return part;
}

bool isLink(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

// One step on the way of a path that does not exist to the place that it means. Returns the path that is one
// link, or one way down and up again, shorter; nothing when `rest`, what is missing behind `existing`, has
// none. A link counts in `links`.
std::optional<std::string> shortened(const std::string& existing, std::string_view rest, int& links) {
  Components components(rest);
  std::vector<std::string_view> down = {components.next()};
  const std::string first = existing + "/" + std::string(down.front());
  std::array<char, PATH_MAX> target{};
  const ssize_t n = readlink(first.c_str(), target.data(), target.size());
  if (n > 0) {
    ++links;
    const std::string_view place(target.data(), static_cast<std::size_t>(n));
    return (place.starts_with('/') ? "" : existing + "/") + std::string(place) + "/" +
           std::string(components.rest());
  }
  bool isShorter = false;
  while (!down.empty()) {
    const std::string_view name = components.next();
    if (name.empty()) break;
    if (name != "..") {
      down.push_back(name);
    } else {
      down.pop_back();
      isShorter = true;
    }
  }
  if (!isShorter) return std::nullopt;
  std::string path = existing;
  for (const std::string_view name : down) path.append(1, '/').append(name);
  return path.append(1, '/').append(components.rest());
}

// As PathResolver::resolveDestination, for a path that does not exist, in as many system calls as it takes.
PathIdentity seeThrough(const std::string& path, struct stat& status, int& error) {
  std::string place = path;
  for (int links = 0; links <= kMaxLinks;) {
    while (place.size() > 1 && place.ends_with('/')) place.pop_back();
    const std::optional<ExistingPart> existing = existingObject(place, status);
    if (!existing) break;
    if (existing->length == place.size()) {
      error = 0;
      return {status.st_dev, status.st_ino, path.size()};
    }
    std::string_view rest = std::string_view(place).substr(existing->length);
    if (std::optional<std::string> next = shortened(place.substr(0, existing->length), rest, links)) {
      place = std::move(*next);
      continue;
    }
    error = ENOENT;
    return {status.st_dev, status.st_ino, 0, std::make_shared<const std::string>(rest)};
  }
  error = ELOOP;
  return {};
}

}  // namespace

ExistingPart existingPart(std::string_view path, struct stat& status) {
  std::string existing(path);
  int error = 0;
  while (!existing.empty() && stat(existing.c_str(), &status) != 0) {
    if (existing.size() == path.size()) error = errno;
    existing.resize(parentLength(existing));
  }
  return {existing.size(), error};
}

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

PathIdentity PathResolver::resolve(const std::string& path, struct stat& status, int& error) {
  return lookUp(path, ::stat, status, error);
}

PathIdentity PathResolver::resolveDestination(const std::string& path, struct stat& status, int& error) {
  PathIdentity identity = lookUp(path, ::lstat, status, error);
  if (error == 0) {
    if (!S_ISLNK(status.st_mode)) return identity;
    identity = lookUp(path, ::stat, status, error);
    return error == ENOENT ? seeThrough(path, status, error) : identity;
  }
  const bool isHidden = lastIsMissing_ && (lastIsHidden_ || path.ends_with("/.."));
  return isHidden ? seeThrough(path, status, error) : identity;
}

PathIdentity PathResolver::lookUp(const std::string& path, int (*examine)(const char*, struct stat*),
                                  struct stat& status, int& error) {
  const std::string_view directory = std::string_view(path).substr(0, parentLength(path));
  error = ENOENT;
  if (!lastIsMissing_ || directory != lastDirectory_) {
    error = examine(path.c_str(), &status) == 0 ? 0 : errno;
    if (error == 0) return {status.st_dev, status.st_ino, path.size()};
    resolveDirectory(directory);
  }
  return lastIdentity_;
}

void PathResolver::resolveDirectory(std::string_view directory) {
  if (directory == lastDirectory_ && lastIdentity_.inode != 0) return;
  lastDirectory_ = directory;
  lastIdentity_ = {};
  lastIsHidden_ = false;
  struct stat status {};
  const std::optional<ExistingPart> existing = existingObject(directory, status);
  lastIsMissing_ = existing && existing->error == ENOENT;
  if (!existing) return;
  lastIdentity_ = {status.st_dev, status.st_ino, existing->length};
  if (!lastIsMissing_) return;
  Components missing(directory.substr(existing->length));
  const std::string first = lastDirectory_.substr(0, existing->length) + "/" + std::string(missing.next());
  lastIsHidden_ = isLink(first);
  for (std::string_view name = missing.next(); !name.empty(); name = missing.next())
    lastIsHidden_ = lastIsHidden_ || name == "..";
}

}  // namespace tamrix
