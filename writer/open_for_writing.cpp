#include "writer/open_for_writing.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <utility>

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
  std::string name = path;
  for (int links = 0; links <= kMostLinks; ++links) {
    // Tried first, as most destinations are new. If it succeeds, this call made the file.
    OpenedFile opened = openFile(name, kFlags | O_CREAT | O_EXCL, mode, writer, stop);
    const bool isMade = opened.error == 0;
    if (opened.error != EEXIST) return {std::move(opened), isMade};

    opened = openFile(name, kFlags, 0, writer, stop);
    if (opened.error == EWOULDBLOCK) opened = openWaiting(name, O_WRONLY | O_CLOEXEC, writer, stop);
    if (opened.error != ENOENT) return {std::move(opened), false};
    // A link that leads nowhere, or the file has gone meanwhile.
    if (std::string target = followLink(name); !target.empty()) name = std::move(target);
  }
  return {{{}, ELOOP}, false};
}

}  // namespace tamrix
