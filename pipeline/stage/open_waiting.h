// Opening a file on which another process holds a lease; see fcntl(2).
#pragma once

#include <string>

#include "pipeline/ring/stop_flag.h"
#include "pipeline/stage/thread.h"
#include "reader/record/unique_fd.h"

namespace tamrix {

struct OpenedFile {
  UniqueFd fd;    // not open: `error` says why
  int error = 0;  // EINTR: the stop came first
};

// Opens the file at `path` with `flags`, and waits until a lease on it is given up, which the system asks its
// holder to do. Anything but a regular file might never open, and is refused with EWOULDBLOCK. `thread` is
// the calling one, whose wait a stop breaks off.
OpenedFile openWaiting(const std::string& path, int flags, Thread& thread, const StopFlag& stop);

}  // namespace tamrix
