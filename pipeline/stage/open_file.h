// Opening a file in a stage, where a stop breaks off what takes long.
#pragma once

#include <sys/types.h>

#include <string>

#include "pipeline/ring/stop_flag.h"
#include "pipeline/stage/thread.h"
#include "reader/record/unique_fd.h"

namespace tamrix {

struct OpenedFile {
  UniqueFd fd;    // not open: `error` says why
  int error = 0;  // EINTR: the stop came first
};

// As open(2). `thread` is the calling one.
OpenedFile openFile(const std::string& path, int flags, mode_t mode, Thread& thread, const StopFlag& stop);

// Opens a file and waits until a lease on it is given up, which the system asks its holder to do; see
// fcntl(2). Anything but a regular file might never open, and is refused with EWOULDBLOCK. REQUIRES: `flags`
// are without O_CREAT.
OpenedFile openWaiting(const std::string& path, int flags, Thread& thread, const StopFlag& stop);

}  // namespace tamrix
