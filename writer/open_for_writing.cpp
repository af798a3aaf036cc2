#include "writer/open_for_writing.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

#include "pipeline/stage/open_waiting.h"

namespace tamrix {

namespace {

// Not blocking: opening a FIFO that nobody reads fails instead of waiting. It makes no difference to regular
// files.
constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NONBLOCK;
constexpr int kMostLinks = 40;  // in a row; as the system's own limit

// The path that the link `path` holds; empty when it is no link (any more).
std::string followLink(const std::string& path) {
  std::array<char, PATH_MAX> text;  // NOLINT(cppcoreguidelines-pro-type-member-init): written by readlink
  const ssize_t length = readlink(path.c_str(), text.data(), text.size());
  if (length <= 0) return {};
  std::string target(text.data(), static_cast<std::size_t>(length));
  if (target.front() == '/') return target;
  return path.substr(0, path.rfind('/') + 1) + target;
}

}  // namespace

FileForWriting openForWriting(const std::string& path, mode_t mode, Thread& writer, const StopFlag& stop) {
  FileForWriting result;
  std::string name = path;
  for (int links = 0; links <= kMostLinks; ++links) {
    // Tried first, as most destinations are new. If it succeeds, this call made the file.
    result.fd = UniqueFd(open(name.c_str(), kFlags | O_CREAT | O_EXCL, mode));
    result.isMade = result.fd.isOpen();
    result.error = result.isMade ? 0 : errno;
    if (result.error != EEXIST) return result;

    result.fd = UniqueFd(open(name.c_str(), kFlags));
    result.error = result.fd.isOpen() ? 0 : errno;
    if (result.error == EWOULDBLOCK) {
      OpenedFile waitedFor = openWaiting(name, O_WRONLY | O_CLOEXEC, writer, stop);
      result.fd = std::move(waitedFor.fd);
      result.error = waitedFor.error;
    }
    if (result.error != ENOENT) return result;
    // A link that leads nowhere, or the file has gone meanwhile.
    if (std::string target = followLink(name); !target.empty()) name = std::move(target);
  }
  result.error = ELOOP;
  return result;
}

}  // namespace tamrix
