// Making "srcpath" and "dstpath" absolute.
//
//     /x  "/x"          stay as they are, quotes included
//     ~/x  ./x          home or working directory, then /x
//     x                 working directory, then /x
//     "x"               as x" (the opening quote goes, the closing one stays)
//
// Kept: after a leading "~" or "." anything but a slash and at least one more character is dropped, so
// ~user becomes the home directory, and .. ../up and .hidden become the working directory. A warning says so.
#include <cstdlib>
#include <filesystem>

#include "config/properties.h"
#include "log/logger.h"

namespace tamrix {

int Properties::updatePath(const char* key) {
  const char* stored = nullptr;
  std::string value = getProperty(key, stored) == 0 ? stored : "";
  if (value.starts_with('/') || value.starts_with("\"/")) return 0;
  if (value.starts_with('"')) {
    value.erase(0, 1);
    if (addProperty(key, value) != 0) return 1;
  }

  logger->log(kDebug, msg::kPropertiesRelativePath, value);
  std::error_code error;
  const std::string currentDir = std::filesystem::current_path(error).string();
  if (error) {
    logger->log(kUrgent, msg::kPropertiesNoCurrentDir, error.message());
    return 1;
  }
  logger->log(kDebug, msg::kPropertiesCurrentDir, currentDir);

  std::string path = currentDir;
  if (value.starts_with('~')) {
    const char* const home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') {
      logger->log(kUrgent, msg::kPropertiesHomeNotSet, value);
      return 1;
    }
    path = home;
  }
  if (!value.starts_with('~') && !value.starts_with('.')) {
    path += "/" + value;
  } else if (value.size() >= 3 && value[1] == '/') {
    path += value.substr(1);
  } else if (value.size() >= 2 && value[1] != '/') {
    logger->log(kWarning, msg::kPropertiesPathCut, value, path);
  }
  logger->log(kDebug, msg::kPropertiesNewPath, path);
  return addProperty(key, path);
}

}  // namespace tamrix
