#include "pipeline/run/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace tamrix {

WholeFile::~WholeFile() {
  if (file_ != nullptr) (void)std::fclose(file_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

int WholeFile::open(std::string path) {
  path_ = std::move(path);
  struct stat there {};
  if (lstat(path_.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) {
    return S_ISDIR(there.st_mode) ? EISDIR : EINVAL;
  }
  std::string name = path_ + ".XXXXXX";
  const int fd = mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) return errno;
  temporary_ = name;
  const mode_t mask = umask(0);
  umask(mask);
  if (fchmod(fd, 0666 & ~mask) == 0 && (file_ = fdopen(fd, "w")) != nullptr) return 0;
  const int error = errno;
  close(fd);
  return error;
}

int WholeFile::complete() {
  if (std::fflush(file_) != 0 || fsync(fileno(file_)) != 0) return errno;
  const int closed = std::fclose(std::exchange(file_, nullptr));
  if (closed != 0 || std::rename(temporary_.c_str(), path_.c_str()) != 0) return errno;
  temporary_.clear();
  return 0;
}

}  // namespace tamrix
