// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace tamrix {

// Purpose: owns a descriptor, so that every path closes it. Threads: one at a time. Lifetime: any.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~UniqueFd() { (void)close(); }

  bool isOpen() const { return fd_ >= 0; }
  int get() const { return fd_; }
  // For closes whose result counts. Returns close(2)'s result, with errno set; 0 when nothing is open. The
  // descriptor is gone either way.
  int close() { return fd_ < 0 ? 0 : ::close(std::exchange(fd_, -1)); }

 private:
  int fd_ = -1;
};

}  // namespace tamrix
