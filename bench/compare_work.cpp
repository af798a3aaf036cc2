#include "bench/compare_work.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <system_error>

namespace tamrix::bench {

namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kPiece = 1 << 20;       // what is made, compared and written at a time
constexpr std::int64_t kSparseData = 1 << 16;  // data in each piece of a sparse file
constexpr std::size_t kSmallBuffer = 1 << 17;
constexpr std::size_t kFileOverhead = 8192;  // what a file takes of memory beside its data, at most
constexpr std::size_t kFilesPerDirectory = 200;
constexpr time_t kModified = 1500000000;

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// A descriptor for the length of a scope.
class File {
 public:
  File(const std::string& path, int flags) : fd_(open(path.c_str(), flags | O_CLOEXEC, 0644)), path_(path) {
    if (fd_ < 0) fail(path);
  }
  ~File() { close(fd_); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int fd() const { return fd_; }

  void writeAt(const char* data, std::int64_t size, std::int64_t offset) const {
    if (pwrite(fd_, data, static_cast<std::size_t>(size), offset) != size) fail(path_);
  }

 private:
  const int fd_;
  const std::string path_;
};

// Bytes that no file system can make smaller.
const std::vector<char>& noise() {
  static const std::vector<char> bytes = [] {
    std::vector<char> made(2 * kPiece);
    std::mt19937_64 random(1);
    for (std::size_t i = 0; i < made.size(); i += sizeof(std::uint64_t)) {
      const std::uint64_t word = random();
      std::memcpy(&made[i], &word, sizeof(word));
    }
    return made;
  }();
  return bytes;
}

std::string nameOf(const std::string& root, std::size_t number) {
  return root + "/d" + std::to_string(number / kFilesPerDirectory) + "/f" + std::to_string(number);
}

void makeDirectories(const std::string& root, std::size_t files) {
  for (std::size_t i = 0; i < files; i += kFilesPerDirectory) {
    fs::create_directories(fs::path(nameOf(root, i)).parent_path());
  }
}

void writeContent(const Work& work, std::size_t number, const File& file) {
  const std::int64_t size = work.sizes[number];
  for (std::int64_t at = 0; at < size; at += kPiece) {
    const char* const data =
        noise().data() + (static_cast<std::int64_t>(number) * 4096 + at / kPiece) % kPiece;
    const std::int64_t piece = std::min(kPiece, size - at);
    file.writeAt(data, work.sparse ? std::min(piece, kSparseData) : piece, at);
  }
  if (work.sparse && ftruncate(file.fd(), size) != 0) fail("ftruncate");
}

// The place of a file on a volume to which the directories were written one after the other, in another order
// than their names'; with `scattered`, all files in another order than their names'.
std::size_t startBlock(std::size_t number, bool scattered) {
  const auto elsewhere = [](std::size_t n) { return n * 7919 % 100003; };
  if (scattered) return elsewhere(number);
  return elsewhere(number / kFilesPerDirectory) * kFilesPerDirectory + number % kFilesPerDirectory;
}

bool setAttributes(int fd, std::size_t block) {
  const std::pair<const char*, std::string> attributes[] = {
      {"user.ltfs.startblock", std::to_string(block)},
      {"user.ltfs.partition", "b"},
      {"user.ltfs.volumeUUID", "30a91a08-daae-48d1-ae75-69804e61d2ea"},
  };
  return std::all_of(std::begin(attributes), std::end(attributes), [&](const auto& attribute) {
    return fsetxattr(fd, attribute.first, attribute.second.data(), attribute.second.size(), 0) == 0;
  });
}

std::vector<std::string> filesBelow(const std::string& root) {
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (entry.is_regular_file()) names.push_back(entry.path().string().substr(root.size()));
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool sameContent(const std::string& a, const std::string& b) {
  const File left(a, O_RDONLY);
  const File right(b, O_RDONLY);
  std::vector<char> one(kPiece);
  std::vector<char> other(kPiece);
  for (;;) {
    const ssize_t n = read(left.fd(), one.data(), one.size());
    if (n != read(right.fd(), other.data(), other.size()) || n < 0) return false;
    if (n == 0) return true;
    if (std::memcmp(one.data(), other.data(), static_cast<std::size_t>(n)) != 0) return false;
  }
}

bool sameAttributes(const std::string& a, const std::string& b) {
  char one[256];
  char other[256];
  for (const char* name : {"user.ltfs.startblock", "user.ltfs.partition", "user.ltfs.volumeUUID"}) {
    const ssize_t n = getxattr(a.c_str(), name, one, sizeof(one));
    if (n < 0 || n != getxattr(b.c_str(), name, other, sizeof(other)) ||
        std::memcmp(one, other, static_cast<std::size_t>(n)) != 0) {
      return false;
    }
  }
  return true;
}

// Writes as many bytes as the work's file has, and leaves its holes.
void writeFromMemory(const Work& work, std::size_t number, const File& file,
                     const std::vector<char>& buffer) {
  const std::int64_t size = work.sizes[number];
  const auto most = static_cast<std::int64_t>(buffer.size());
  for (std::int64_t at = 0; at < size; at += most) {
    if (work.sparse && at % kPiece != 0) continue;
    const std::int64_t piece = std::min(most, size - at);
    file.writeAt(buffer.data(), work.sparse ? std::min(piece, kSparseData) : piece, at);
  }
  if (work.sparse && ftruncate(file.fd(), size) != 0) fail("ftruncate");
}

void setLock(const File& file, short type) {
  struct flock record {};
  record.l_type = type;
  record.l_whence = SEEK_SET;
  if (fcntl(file.fd(), F_SETLK, &record) != 0) fail("fcntl");
}

double secondsOf(const std::chrono::steady_clock::time_point& begun) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
}

}  // namespace

bool makeWork(const Work& work, const std::string& root, bool attributes) {
  makeDirectories(root, work.sizes.size());
  for (std::size_t i = 0; i < work.sizes.size(); ++i) {
    const File file(nameOf(root, i), O_WRONLY | O_CREAT | O_EXCL);
    writeContent(work, i, file);
    if (attributes && !setAttributes(file.fd(), startBlock(i, work.scattered))) return false;
    const timespec times[2] = {{kModified, 0}, {kModified + static_cast<time_t>(i), 123456000}};
    if (futimens(file.fd(), times) != 0) fail("futimens");
  }
  return true;
}

void writeLayout(const Work& work, const std::string& file) {
  std::ofstream layout(file);
  for (std::size_t i = 0; i < work.sizes.size(); ++i) {
    layout << "b " << startBlock(i, work.scattered) << ' ' << nameOf("", i).substr(1) << '\n';
  }
  if (!layout.flush()) fail(file);
}

bool sameTrees(const std::string& a, const std::string& b, bool attributes) {
  const std::vector<std::string> names = filesBelow(a);
  if (names != filesBelow(b)) return false;
  return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
    struct stat one {};
    struct stat other {};
    // Tar keeps whole seconds in its usual format, so no more is asked of anybody here.
    return stat((a + name).c_str(), &one) == 0 && stat((b + name).c_str(), &other) == 0 &&
           one.st_mtim.tv_sec == other.st_mtim.tv_sec && sameContent(a + name, b + name) &&
           (!attributes || sameAttributes(a + name, b + name));
  });
}

double limitSeconds(const Work& work, const std::string& root, const std::string& target) {
  std::vector<char> buffer(kSmallBuffer);
  auto begun = std::chrono::steady_clock::now();
  for (std::size_t i = 0; i < work.sizes.size(); ++i) {
    const File file(nameOf(root, i), O_RDONLY);
    while (read(file.fd(), buffer.data(), buffer.size()) > 0) {
    }
  }
  const double reading = secondsOf(begun);

  begun = std::chrono::steady_clock::now();
  makeDirectories(target, work.sizes.size());
  for (std::size_t i = 0; i < work.sizes.size(); ++i) {
    writeFromMemory(work, i, File(nameOf(target, i), O_WRONLY | O_CREAT | O_TRUNC), buffer);
  }
  return std::max(reading, secondsOf(begun));
}

double writerSeconds(const Work& work, const std::string& target, bool attributes) {
  const std::vector<char> buffer(kSmallBuffer);
  const auto begun = std::chrono::steady_clock::now();
  makeDirectories(target, work.sizes.size());
  for (std::size_t i = 0; i < work.sizes.size(); ++i) {
    const std::string name = nameOf(target, i);
    {
      const File file(name, O_WRONLY | O_CREAT | O_TRUNC);
      setLock(file, F_WRLCK);
      writeFromMemory(work, i, file, buffer);
      if (attributes && !setAttributes(file.fd(), i)) fail(name);
      setLock(file, F_UNLCK);
    }
    const timeval times[2] = {{kModified, 0}, {kModified, 0}};
    if (utimes(name.c_str(), times) != 0) fail(name);
  }
  return secondsOf(begun);
}

std::size_t memoryOf(const Work& work) {
  std::size_t bytes = 0;
  for (const std::int64_t size : work.sizes) {
    const std::int64_t data = work.sparse ? size / (kPiece / kSparseData) : size;
    bytes += static_cast<std::size_t>(data) + kFileOverhead;
  }
  return bytes;
}

std::int64_t blocksUsed(const std::string& root) {
  std::int64_t blocks = 0;
  for (const std::string& name : filesBelow(root)) {
    struct stat status {};
    if (stat((root + name).c_str(), &status) == 0) blocks += status.st_blocks;
  }
  return blocks;
}

}  // namespace tamrix::bench
