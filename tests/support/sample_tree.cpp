#include "tests/support/sample_tree.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <string_view>
#include <utility>

#include "tests/support/temp_dir.h"

namespace tamrix::test {

namespace {

constexpr std::size_t kLongestName = 255;
constexpr std::size_t kZeroRun = 4096;

// By name; values may hold any bytes.
std::map<std::string, std::string> attributesOf(const std::string& path) {
  static std::array<char, 65536> names;
  static std::array<char, 65536> value;
  std::map<std::string, std::string> attributes;
  const char* const end = names.data() + listxattr(path.c_str(), names.data(), names.size());
  for (const char* name = names.data(); name < end; name += std::strlen(name) + 1) {
    if (!std::string_view(name).starts_with("user.")) continue;
    const ssize_t size = getxattr(path.c_str(), name, value.data(), value.size());
    attributes[name] = size < 0 ? "unreadable" : std::string(value.data(), static_cast<std::size_t>(size));
  }
  return attributes;
}

bool sameToTheMicrosecond(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec / 1000 == b.tv_nsec / 1000;
}

}  // namespace

SampleTree::SampleTree(std::string root, std::uint64_t seed, int count, std::size_t largest)
    : root_(std::move(root)), random_(seed) {
  std::string directory;
  for (int i = 0; i < count; ++i) {
    // A directory holds some twenty files, with the next one in it until that gets too deep.
    if (i % 20 == 19) {
      directory = directory.size() > 300 ? "" : directory + "d'" + std::to_string(i) + " \xff/";
      std::filesystem::create_directories(root_ + "/" + directory);
    }
    addFile(directory, largest);
  }
  restoreTimes();
}

std::string SampleTree::bytes(std::size_t size) {
  std::string result(size, '\0');
  for (std::size_t at = 0; at < size; at += sizeof(std::uint64_t)) {
    const std::uint64_t word = random_();
    std::memcpy(result.data() + at, &word, std::min(sizeof(word), size - at));
  }
  return result;
}

std::string SampleTree::content(std::size_t largest) {
  // One file in fifty may have the full size, the others are about a hundred times smaller.
  const double limit = static_cast<double>(below(50) == 0 ? largest : largest / 100 + 1);
  const double exponent = static_cast<double>(below(1000)) / 999;
  std::string result = bytes(static_cast<std::size_t>(std::pow(limit + 1, exponent)) - 1);
  for (std::size_t at = 0; at < result.size(); at += kZeroRun) {
    if (below(3) == 0) std::memset(result.data() + at, 0, std::min(kZeroRun, result.size() - at));
  }
  return result;
}

std::string SampleTree::name() {
  static constexpr std::array<std::string_view, 14> kPieces = {
      "file", " ", "\n", "\"", "'", "-", "--help=", "\xff\xc3", ".", "*?", "%s%n", "\\", "&lt;", "\t"};
  std::string result = below(8) == 0 ? "-" : "";
  for (std::uint64_t pieces = 1 + below(4); pieces > 0; --pieces) result += kPieces.at(below(kPieces.size()));
  result += std::to_string(files_.size());  // no two are the same, nor "." or ".."
  if (below(40) == 0) result.insert(0, kLongestName - result.size(), 'L');
  return result;
}

timespec SampleTree::time() {
  constexpr std::int64_t kFarthest = 2'000'000'000;
  return {static_cast<std::int64_t>(below(2 * kFarthest)) - kFarthest,
          static_cast<long>(below(1'000'000'000))};
}

void SampleTree::addFile(const std::string& directory, std::size_t largest) {
  const std::string& added = files_.emplace_back(File{directory + name(), {time(), time()}, 0}).name;
  const std::string path = root_ + "/" + added;
  const std::string data = content(largest);
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  EXPECT_EQ(write(fd, data.data(), data.size()), static_cast<ssize_t>(data.size())) << path;
  close(fd);
  mode_t mode = 0400 | static_cast<mode_t>(below(010000));
  if (below(2) == 0) {
    addAttributes(path);
    mode |= 0200;  // attributes can only be set on a file that its owner may write
  }
  files_.back().mode = mode;
  EXPECT_EQ(chmod(path.c_str(), mode), 0) << path;
}

void SampleTree::addAttributes(const std::string& path) {
  if (below(2) == 0) {
    setXattr(path, "user.ltfs.startblock", std::to_string(below(1'000'000)));
    setXattr(path, "user.ltfs.partition", below(2) == 0 ? "a" : "b");
    setXattr(path, "user.ltfs.volumeUUID", std::string(36, static_cast<char>('0' + below(3))));
  }
  static constexpr std::array<std::size_t, 6> kSizes = {0, 1, 50, 300, 2000, 60000};
  for (std::uint64_t i = below(4); i > 0; --i) {
    const std::string name = "user.sample \xe9" + std::to_string(i);
    const std::string value = bytes(kSizes.at(below(kSizes.size())));
    // Not all file systems take the larger ones.
    (void)setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0);
  }
}

void SampleTree::restoreTimes() const {
  for (const File& file : files_) {
    EXPECT_EQ(utimensat(AT_FDCWD, (root_ + "/" + file.name).c_str(), file.times, 0), 0) << file.name;
  }
}

std::string SampleTree::differences(const std::string& destination, mode_t umask) const {
  std::ostringstream told;
  for (const File& file : files_) {
    const std::string source = root_ + "/" + file.name;
    const std::string copy = destination + "/" + file.name;
    struct stat status {};
    if (stat(copy.c_str(), &status) != 0) {
      told << "missing: " << file.name << '\n';
      continue;
    }
    // Before the content is read: that moves the access time.
    if (!sameToTheMicrosecond(status.st_atim, file.times[0])) told << "access time: " << file.name << '\n';
    if (!sameToTheMicrosecond(status.st_mtim, file.times[1])) told << "modify time: " << file.name << '\n';
    const mode_t expected = file.mode & ~umask & ~static_cast<mode_t>(S_ISUID | S_ISGID);
    if ((status.st_mode & 07777) != expected) {
      told << "mode: " << file.name << std::oct << ' ' << status.st_mode << " for " << file.mode << '\n';
    }
    if (attributesOf(source) != attributesOf(copy)) told << "attributes: " << file.name << '\n';
    if (readFile(source) != readFile(copy)) told << "content: " << file.name << '\n';
  }
  return told.str();
}

}  // namespace tamrix::test
