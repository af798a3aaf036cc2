#include "reader/list/directory_walk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "log/logger.h"
#include "reader/list/wildcard.h"
#include "reader/record/arena.h"

namespace tamrix {

namespace {

struct DirCloser {
  void operator()(DIR* dir) const { closedir(dir); }
};
using Dir = std::unique_ptr<DIR, DirCloser>;

std::string join(const std::string& directory, const char* name) {
  std::string path;
  path.reserve(directory.size() + 1 + std::strlen(name));
  path.append(directory).append(1, '/').append(name);
  return path;
}

// One walk: what it looks for, what it has found, and the directories that it is in.
class Walker {
 public:
  Walker(const WalkRules& rules, PathList& list, PipelineGlobals& globals)
      : rules_(rules), list_(list), stop_(globals.stopExecution), found_(globals.counters.filesFound) {}

  void walkDirectory(const std::string& directory) {
    const Dir dir(opendir(directory.c_str()));
    struct stat status {};
    // Examining "." fails where the directory may be read but not searched.
    if (dir == nullptr || fstatat(dirfd(dir.get()), ".", &status, 0) != 0) {
      const int error = errno;
      if (rules_.reportUnopened) report(directory, error);
      return;
    }
    const std::pair<dev_t, ino_t> identity(status.st_dev, status.st_ino);
    if (std::find(inside_.begin(), inside_.end(), identity) != inside_.end()) {
      logger->log(kWarning, msg::kFileListerDirectoryLoop, directory);
      return;
    }
    inside_.push_back(identity);
    readEntries(directory, dir.get());
    inside_.pop_back();
  }

 private:
  void readEntries(const std::string& directory, DIR* dir) {
    const char* shared = nullptr;
    while (!stop_.isSet()) {
      errno = 0;
      const dirent* const entry = readdir(dir);
      if (entry == nullptr) {
        const int error = errno;
        if (error != 0) report(directory, error);
        return;
      }
      takeEntry(directory, dir, *entry, shared);
    }
  }

  // `shared` is the directory as paths have it, or null until one is needed.
  void takeEntry(const std::string& directory, DIR* dir, const dirent& entry, const char*& shared) {
    const char* const name = entry.d_name;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) return;
    auto type = static_cast<mode_t>(DTTOIF(entry.d_type));
    if (entry.d_type == DT_UNKNOWN || entry.d_type == DT_LNK) {
      struct stat status {};
      if (fstatat(dirfd(dir), name, &status, 0) != 0) {
        const int error = errno;
        if (error != ENOENT) report(join(directory, name), error);
        return;
      }
      type = status.st_mode & S_IFMT;
    }
    if (type == rules_.type) {
      if (!wildcardMatch(rules_.pattern, name)) return;
      if (shared == nullptr) shared = FilePath::sharedDirectory(join(directory, ""));
      list_.emplace_back(shared, copyToArena(name));
      found_.add(1);
    } else if (type == S_IFDIR && rules_.recursive) {
      walkDirectory(join(directory, name));
    }
  }

  void report(const std::string& path, int error) const {
    if (stop_.isSet()) return;  // which may have broken off the call
    logger->output(msg::kFileListerCannotOpen, path, std::strerror(error));
    logger->recordReturnCode(1);
  }

  const WalkRules& rules_;
  PathList& list_;
  const StopFlag& stop_;
  Count& found_;
  std::vector<std::pair<dev_t, ino_t>> inside_;
};

}  // namespace

void walkDirectory(const WalkRules& rules, const std::string& directory, PipelineGlobals& globals,
                   PathList& list) {
  Walker(rules, list, globals).walkDirectory(directory);
}

}  // namespace tamrix
