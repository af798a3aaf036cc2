// A machine with less memory, and what its page cache holds: for bench/manners.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace tamrix::bench {

// A process that holds memory locked, for the length of a scope: what is left is what everybody else has, the
// page cache included. All throw std::system_error or std::runtime_error.
class LockedMemory {
 public:
  explicit LockedMemory(std::size_t bytes);
  ~LockedMemory() { release(); }
  LockedMemory(const LockedMemory&) = delete;
  LockedMemory& operator=(const LockedMemory&) = delete;

 private:
  void release() const;

  pid_t pid_ = -1;
};

// Bytes that could be had without taking pages from programs.
std::int64_t availableMemory();

// Writes content that neither the file system nor a host can make smaller, and waits until it is on disk.
void makeFile(const std::string& path, std::int64_t size);

// Bytes of the files below `root` that are in the page cache.
std::int64_t cachedBelow(const std::string& root);
// Drops them.
void dropBelow(const std::string& root);

}  // namespace tamrix::bench
