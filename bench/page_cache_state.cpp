#include "bench/page_cache_state.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace tamrix::bench {

namespace {

constexpr std::int64_t kBlock = 1 << 20;

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

class File {
 public:
  File(const std::string& path, int flags) : fd_(open(path.c_str(), flags | O_CLOEXEC, 0600)) {
    if (fd_ < 0) fail(path);
  }
  ~File() { close(fd_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int get() const { return fd_; }

 private:
  const int fd_;
};

std::vector<std::string> filesBelow(const std::string& root) {
  std::vector<std::string> found;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (entry.is_regular_file()) found.push_back(entry.path());
  }
  return found;
}

}  // namespace

LockedMemory::LockedMemory(std::size_t bytes) {
  int ready[2];
  if (pipe(ready) != 0) fail("pipe");
  pid_ = fork();
  if (pid_ < 0) fail("fork");
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int flags = MAP_PRIVATE | MAP_ANONYMOUS;
    void* const memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, flags, -1, 0);
    const char done = memory != MAP_FAILED && mlock(memory, bytes) == 0 ? 1 : 0;
    if (write(ready[1], &done, 1) == 1) pause();
    _exit(0);
  }
  close(ready[1]);
  char done = 0;
  const bool locked = read(ready[0], &done, 1) == 1 && done == 1;
  close(ready[0]);
  if (locked) return;
  release();
  throw std::runtime_error("memory could not be locked: run it as root, or raise ulimit -l");
}

void LockedMemory::release() const {
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

std::int64_t availableMemory() {
  std::ifstream info("/proc/meminfo");
  std::string name;
  for (std::int64_t kibibytes = 0; info >> name;) {
    if (name == "MemAvailable:" && info >> kibibytes) return kibibytes * 1024;
  }
  throw std::runtime_error("/proc/meminfo tells no available memory");
}

void makeFile(const std::string& path, std::int64_t size) {
  static std::mt19937_64 random(1);
  std::vector<std::uint64_t> block(kBlock / sizeof(std::uint64_t));
  std::generate(block.begin(), block.end(), random);
  const File file(path, O_WRONLY | O_CREAT | O_TRUNC);
  for (std::int64_t left = size; left > 0;) {
    ++block[0];
    const auto piece = static_cast<std::size_t>(std::min(left, kBlock));
    const ssize_t n = write(file.get(), block.data(), piece);
    if (n <= 0) fail(path);
    left -= n;
  }
  if (fsync(file.get()) != 0) fail(path);
}

std::int64_t cachedBelow(const std::string& root) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  std::int64_t pages = 0;
  for (const std::string& path : filesBelow(root)) {
    const std::size_t size = std::filesystem::file_size(path);
    const File file(path, O_RDONLY);
    void* const mapped = mmap(nullptr, size, PROT_READ, MAP_SHARED, file.get(), 0);
    if (mapped == MAP_FAILED) fail(path);
    std::vector<unsigned char> states((size + page - 1) / page);
    if (mincore(mapped, size, states.data()) != 0) fail(path);
    munmap(mapped, size);
    pages +=
        std::count_if(states.begin(), states.end(), [](unsigned char state) { return (state & 1) != 0; });
  }
  return pages * static_cast<std::int64_t>(page);
}

void dropBelow(const std::string& root) {
  for (const std::string& path : filesBelow(root))
    (void)posix_fadvise(File(path, O_RDONLY).get(), 0, 0, POSIX_FADV_DONTNEED);
}

}  // namespace tamrix::bench
