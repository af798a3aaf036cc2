// Opening a file to be written without touching what it holds.
#pragma once

#include <sys/types.h>

#include <string>

#include "pipeline/ring/stop_flag.h"
#include "pipeline/stage/open_file.h"
#include "pipeline/stage/thread.h"

namespace tamrix {

struct FileForWriting : OpenedFile {
  bool isMade = false;  // by this call: there was no such file before
};

// Opens the file at `path`, or makes it with `mode` less the umask; for a dangling link, where the link leads
// to. A FIFO that nobody reads is refused instead of waited for; a regular file that another process holds a
// lease on is waited for. A stop breaks that off with EINTR. `writer` is the calling thread.
FileForWriting openForWriting(const std::string& path, mode_t mode, Thread& writer, const StopFlag& stop);

}  // namespace tamrix
