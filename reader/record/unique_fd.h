// A file descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <cerrno>
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
  [[nodiscard]] int get() const { return fd_; }
  // For closes whose result counts, as close(2). Returns 0 or an error number; 0 when nothing is open. The
  // descriptor is gone either way.
  [[nodiscard]] int close() { return fd_ < 0 || ::close(std::exchange(fd_, -1)) == 0 ? 0 : errno; }

 private:
  int fd_ = -1;
};

}  // namespace tamrix
