#include "writer/make_subdir.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "log/logger.h"

namespace tamrix {

namespace {

constexpr mode_t kDirectoryMode = 0777;

}  // namespace

int makeSubdir(std::string& path) {
  logger->log(kDebug, msg::kMakeSubdirFor, path);
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    logger->log(kDebug, msg::kMakeSubdirAtRoot);
    return 0;
  }
  std::string directory = path.substr(0, slash);
  logger->log(kDebug, msg::kMakeSubdirMkdir, directory);
  if (mkdir(directory.c_str(), kDirectoryMode) == 0) {
    logger->log(kDebug, msg::kMakeSubdirOk);
    return 0;
  }
  const int error = errno;
  logger->log(kDebug, msg::kMakeSubdirFailed, std::strerror(error));
  if (error == EEXIST) {
    logger->log(kDebug, msg::kMakeSubdirExists);
    return 0;
  }

  if (makeSubdir(directory) != 0) {
    logger->log(kDebug, msg::kMakeSubdirParentFailed);
    path = directory;
    return -1;
  }
  logger->log(kDebug, msg::kMakeSubdirParentOk);
  if (mkdir(directory.c_str(), kDirectoryMode) != 0 && errno != EEXIST) {
    const int again = errno;
    logger->log(kUrgent, msg::kMakeSubdirParentOkFailed, std::strerror(again));
    path = directory;
    return -1;
  }
  logger->log(kDebug, msg::kMakeSubdirParentOkAdded);
  return 0;
}

}  // namespace tamrix
