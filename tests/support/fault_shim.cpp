// A shared object to preload into a program under test: makes one chosen system call fail or come back short.
//
//     TAMRIX_FAULT="CALL NTH ACTION VALUE PATH"     the rest of the text is PATH, it may hold blanks
//     TAMRIX_FAULT_LOG=FILE                         made when the fault has fired
//
// CALL is open, read, write, lseek, ftruncate, close, fcntl, utimes, fsetxattr, getxattr, listxattr, stat,
// mkdir, readdir or malloc; the NTH (from 1) such call on a path that contains PATH is hit. ACTION is "errno"
// (fails with VALUE) or "short" (read and write: at most VALUE bytes). malloc looks at no path.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" void* __libc_malloc(std::size_t size);  // NOLINT: glibc's name

namespace {

struct Fault {
  char call[16] = "";
  long nth = 0;
  bool isShort = false;
  int value = 0;
  const char* path = "";
  const char* logFile = nullptr;
};

std::atomic<long> seen{0};

const Fault& fault() {
  static const Fault parsed = [] {
    Fault f;
    char action[16] = "";
    int pathAt = 0;
    const char* const text = std::getenv("TAMRIX_FAULT");
    if (text != nullptr &&
        std::sscanf(text, "%15s %ld %15s %d %n", f.call, &f.nth, action, &f.value, &pathAt) == 4) {
      f.isShort = std::strcmp(action, "short") == 0;
      f.path = text + pathAt;
      f.logFile = std::getenv("TAMRIX_FAULT_LOG");
    } else {
      f.call[0] = '\0';
    }
    return f;
  }();
  return parsed;
}

bool isCall(const char* call) { return std::strcmp(fault().call, call) == 0; }

// Counts a matching call; notes when it is the one to hit.
bool isNext() {
  if (++seen != fault().nth) return false;
  const long made = syscall(SYS_openat, AT_FDCWD, fault().logFile, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  if (made >= 0) syscall(SYS_close, static_cast<int>(made));
  return true;
}

// Whether this call on `path` is the one to hit.
bool hits(const char* path) {
  if (path == nullptr || std::strstr(path, fault().path) == nullptr) return false;
  return isNext();
}

bool failsOn(const char* call, const char* path) {
  if (!isCall(call) || !hits(path)) return false;
  errno = fault().value;
  return true;
}

// The path that a descriptor is open on.
struct DescriptorPath {
  explicit DescriptorPath(int fd) {
    char link[32];
    std::snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
    const long n = syscall(SYS_readlinkat, AT_FDCWD, link, path, sizeof(path) - 1);
    path[n < 0 ? 0 : n] = '\0';
  }
  char path[4096];
};

bool failsOnFd(const char* call, int fd) { return isCall(call) && failsOn(call, DescriptorPath(fd).path); }

// What is left of `length` for a transfer on `fd`, negative when it is to fail.
ssize_t transferLength(const char* call, int fd, std::size_t length) {
  if (!isCall(call) || !hits(DescriptorPath(fd).path)) return static_cast<ssize_t>(length);
  errno = fault().value;
  if (!fault().isShort) return -1;
  const auto limit = static_cast<std::size_t>(fault().value);
  return static_cast<ssize_t>(length < limit ? length : limit);
}

// Calls the function that this one stands in front of, unless it is the call to fail.
template <class Result, class... Parameters>
Result forward(bool fails, Result failure, const char* name, Parameters... parameters) {
  if (fails) return failure;
  return reinterpret_cast<Result (*)(Parameters...)>(dlsym(RTLD_NEXT, name))(parameters...);
}

}  // namespace

extern "C" {

int open64(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
  va_end(args);
  return forward(failsOn("open", path), -1, "open64", path, flags, mode);
}

DIR* opendir(const char* path) {
  return forward(failsOn("open", path), static_cast<DIR*>(nullptr), "opendir", path);
}

ssize_t read(int fd, void* buffer, std::size_t length) {
  const ssize_t allowed = transferLength("read", fd, length);
  return forward<ssize_t>(allowed < 0, -1, "read", fd, buffer, static_cast<std::size_t>(allowed));
}

ssize_t write(int fd, const void* buffer, std::size_t length) {
  const ssize_t allowed = transferLength("write", fd, length);
  return forward<ssize_t>(allowed < 0, -1, "write", fd, buffer, static_cast<std::size_t>(allowed));
}

off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
  return forward<off64_t>(failsOnFd("lseek", fd), -1, "lseek64", fd, offset, whence);
}

int ftruncate64(int fd, off64_t length) noexcept {
  return forward(failsOnFd("ftruncate", fd), -1, "ftruncate64", fd, length);
}

// Closes, loses what was written, and says that it failed: as the last write-back to a full file system does.
int close(int fd) {
  const bool fails = failsOnFd("close", fd);
  if (fails) syscall(SYS_ftruncate, fd, 0L);
  const int result = forward(false, -1, "close", fd);
  if (!fails) return result;
  errno = fault().value;
  return -1;
}

int fcntl64(int fd, int command, ...) {
  va_list args;
  va_start(args, command);
  void* const argument = va_arg(args, void*);
  va_end(args);
  return forward(failsOnFd("fcntl", fd), -1, "fcntl64", fd, command, argument);
}

int futimens(int fd, const struct timespec times[2]) noexcept {
  return forward(failsOnFd("utimes", fd), -1, "futimens", fd, times);
}

int fsetxattr(int fd, const char* name, const void* value, std::size_t size, int flags) noexcept {
  return forward(failsOnFd("fsetxattr", fd), -1, "fsetxattr", fd, name, value, size, flags);
}

ssize_t getxattr(const char* path, const char* name, void* value, std::size_t size) noexcept {
  return forward<ssize_t>(failsOn("getxattr", path), -1, "getxattr", path, name, value, size);
}

ssize_t listxattr(const char* path, char* list, std::size_t size) noexcept {
  return forward<ssize_t>(failsOn("listxattr", path), -1, "listxattr", path, list, size);
}

int stat64(const char* path, struct stat64* status) noexcept {
  return forward(failsOn("stat", path), -1, "stat64", path, status);
}

int fstat64(int fd, struct stat64* status) noexcept {
  return forward(failsOnFd("stat", fd), -1, "fstat64", fd, status);
}

int fstatat64(int fd, const char* path, struct stat64* status, int flags) noexcept {
  return forward(failsOnFd("stat", fd), -1, "fstatat64", fd, path, status, flags);
}

int mkdir(const char* path, mode_t mode) noexcept {
  return forward(failsOn("mkdir", path), -1, "mkdir", path, mode);
}

struct dirent64* readdir64(DIR* directory) {
  return forward(failsOnFd("readdir", dirfd(directory)), static_cast<struct dirent64*>(nullptr), "readdir64",
                 directory);
}

void* malloc(std::size_t size) noexcept {
  // No look-up in here: those that it would need call malloc themselves.
  static const bool chosen = isCall("malloc");
  if (chosen && isNext()) {
    errno = ENOMEM;
    return nullptr;
  }
  return __libc_malloc(size);
}

}  // extern "C"
