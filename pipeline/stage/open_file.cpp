#include "pipeline/stage/open_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace tamrix {

OpenedFile openFile(const std::string& path, int flags, mode_t mode, Thread& thread, const StopFlag& stop) {
  OpenedFile result;
  do {
    if (stop.isSet()) return {{}, EINTR};
    const Thread::MayWait mayWait(thread);
    result.fd = UniqueFd(open(path.c_str(), flags, mode));
    result.error = result.fd.isOpen() ? 0 : errno;
  } while (result.error == EINTR);
  return result;
}

OpenedFile openWaiting(const std::string& path, int flags, Thread& thread, const StopFlag& stop) {
  // The first opening can't block; the file is examined before it is opened for use.
  const UniqueFd found(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  if (!found.isOpen() || fstat(found.get(), &status) != 0) return {{}, errno};
  if (!S_ISREG(status.st_mode)) return {{}, EWOULDBLOCK};
  return openFile("/proc/self/fd/" + std::to_string(found.get()), flags, 0, thread, stop);
}

}  // namespace tamrix
