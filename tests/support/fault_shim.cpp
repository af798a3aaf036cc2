// A shared object to preload into a program under test: makes one chosen system call fail or come back short.
//
//     TAMRIX_FAULT="CALL NTH ACTION VALUE PATH"     the rest of the text is PATH, it may hold blanks
//     TAMRIX_FAULT_LOG=FILE                         made when the fault has fired
//
// CALL is open, read, write, lseek, ftruncate, close, fcntl, utimes, fsetxattr, getxattr, listxattr, stat,
// mkdir, readdir, sync_file_range or malloc; the NTH (from 1) such call on a path that contains PATH is hit.
// ACTION is "errno" (fails with VALUE) or "short" (read and write: at most VALUE bytes). malloc looks at no
// path.
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
#include <type_traits>

extern "C" void* __libc_malloc(std::size_t size);  // NOLINT: glibc's name

namespace {

struct Fault {
  char call[16] = "";
  long nth = 0;
  char action[16] = "";
  int value = 0;
  int pathAt = 0;
  const char* path = "";
};

std::atomic<long> seen{0};

const Fault& fault() {
  static const Fault parsed = [] {
    Fault f;
    if (const char* const text = std::getenv("TAMRIX_FAULT"); text != nullptr) {
      (void)std::sscanf(text, "%15s %ld %15s %d %n", f.call, &f.nth, f.action, &f.value, &f.pathAt);
      f.path = text + f.pathAt;
    }
    return f;
  }();
  return parsed;
}

bool isCall(const char* call) { return std::strcmp(fault().call, call) == 0; }

// Counts a matching call; notes when it is the one to hit.
bool isNext() {
  if (++seen != fault().nth) return false;
  syscall(SYS_mknodat, AT_FDCWD, std::getenv("TAMRIX_FAULT_LOG"), S_IFREG | 0600, 0);
  return true;
}

// Whether this is the call to hit.
bool fails(const char* call, const char* path) {
  if (!isCall(call) || path == nullptr || std::strstr(path, fault().path) == nullptr) return false;
  if (!isNext()) return false;
  errno = fault().value;
  return true;
}

bool fails(const char* call, int fd) {
  if (!isCall(call)) return false;
  char link[32];
  char path[4096];
  std::snprintf(link, sizeof(link), "/proc/self/fd/%d", fd);
  const long n = syscall(SYS_readlinkat, AT_FDCWD, link, path, sizeof(path) - 1);
  path[n < 0 ? 0 : n] = '\0';
  return fails(call, path);
}

// Calls the function that this one stands in front of, unless it is the call to fail.
template <class Result, class... Parameters>
Result forward(bool failing, const char* name, Parameters... parameters) {
  if (!failing) return reinterpret_cast<Result (*)(Parameters...)>(dlsym(RTLD_NEXT, name))(parameters...);
  return std::is_pointer_v<Result> ? Result{} : (Result)(-1);
}

template <class Data>
ssize_t transfer(const char* name, int fd, Data* data, std::size_t length) {
  const bool hit = fails(name, fd);
  const bool isShort = hit && std::strcmp(fault().action, "short") == 0;
  const auto limit = isShort ? static_cast<std::size_t>(fault().value) : length;
  return forward<ssize_t>(hit && !isShort, name, fd, data, length < limit ? length : limit);
}

}  // namespace

extern "C" {

int open64(const char* path, int flags, ...) {
  va_list args;
  va_start(args, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
  va_end(args);
  return forward<int>(fails("open", path), "open64", path, flags, mode);
}

ssize_t read(int fd, void* data, std::size_t length) { return transfer("read", fd, data, length); }
ssize_t write(int fd, const void* data, std::size_t length) { return transfer("write", fd, data, length); }

// Closes, loses what was written, and says that it failed: as the last write-back to a full file system does.
int close(int fd) {
  const bool failing = fails("close", fd);
  if (failing) syscall(SYS_ftruncate, fd, 0L);
  const int result = forward<int>(false, "close", fd);
  if (!failing) return result;
  errno = fault().value;
  return -1;
}

int fcntl64(int fd, int command, ...) {
  va_list args;
  va_start(args, command);
  void* const argument = va_arg(args, void*);
  va_end(args);
  return forward<int>(fails("fcntl", fd), "fcntl64", fd, command, argument);
}

// Puts the function NAME in front of the system's: it fails as CALL on WHERE, a path or a descriptor.
#define STAND_IN(Result, name, signature, call, where, ...) \
  Result name signature { return forward<Result>(fails(call, where), #name, __VA_ARGS__); }

// clang-format off
STAND_IN(DIR*, opendir, (const char* path), "open", path, path)
STAND_IN(off64_t, lseek64, (int fd, off64_t offset, int whence) noexcept, "lseek", fd, fd, offset, whence)
STAND_IN(int, ftruncate64, (int fd, off64_t length) noexcept, "ftruncate", fd, fd, length)
STAND_IN(int, futimens, (int fd, const struct timespec times[2]) noexcept, "utimes", fd, fd, times)
STAND_IN(int, fsetxattr, (int fd, const char* name, const void* value, std::size_t size, int flags) noexcept,
         "fsetxattr", fd, fd, name, value, size, flags)
STAND_IN(ssize_t, getxattr, (const char* path, const char* name, void* value, std::size_t size) noexcept,
         "getxattr", path, path, name, value, size)
STAND_IN(ssize_t, listxattr, (const char* path, char* list, std::size_t size) noexcept,
         "listxattr", path, path, list, size)
STAND_IN(int, stat64, (const char* path, struct stat64* status) noexcept, "stat", path, path, status)
STAND_IN(int, fstat64, (int fd, struct stat64* status) noexcept, "stat", fd, fd, status)
STAND_IN(int, fstatat64, (int fd, const char* path, struct stat64* status, int flags) noexcept,
         "stat", fd, fd, path, status, flags)
STAND_IN(int, mkdir, (const char* path, mode_t mode) noexcept, "mkdir", path, path, mode)
STAND_IN(int, sync_file_range, (int fd, off64_t from, off64_t length, unsigned flags), "sync_file_range", fd, fd,
         from, length, flags)
STAND_IN(struct dirent64*, readdir64, (DIR* directory), "readdir", dirfd(directory), directory)
// clang-format on

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
