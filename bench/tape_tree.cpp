#include "bench/tape_tree.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace tamrix::bench {

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::string numbered(const char* format, int number) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, number);
  return text.data();
}

}  // namespace

std::string treeDirectory(int file) { return numbered("dir%03d", file / kFilesPerDirectory); }
std::string treeFile(int file) { return numbered("file-%07d", file); }

bool makeTapeFile(const std::string& path, int number, TapeAttributes kind) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0 || ftruncate(fd, kTreeFileSize) != 0) fail(path);
  // A multiplier that is prime to the count spreads neighbours of a directory over the tape.
  const auto block = static_cast<int>(static_cast<long long>(number) * 7919 % 1000003);
  const std::array<std::pair<const char*, std::string>, 7> attributes = {{
      {"user.ltfs.startblock", std::to_string(block)},
      {"user.ltfs.partition", "b"},
      {"user.ltfs.volumeUUID", "5f0c2d1e-8a44-4f0b-9c11-7d2e60b1a9f3"},
      {"user.ltfs.softwareVendor", "VOQ"},
      {"user.ltfs.fileUID", std::to_string(number + 2)},
      {"user.ltfs.createTime", "2019-03-02T08:15:30.250000000Z"},
      {"user.archive.project", "harbour-" + std::to_string(number % 40)},
  }};
  bool taken = true;
  for (std::size_t i = 0; i < static_cast<std::size_t>(kind); ++i) {
    const auto& [name, value] = attributes.at(i);
    if (fsetxattr(fd, name, value.data(), value.size(), 0) == 0) continue;
    taken = errno == ENOTSUP ? false : (fail(path), false);
  }
  close(fd);
  return taken;
}

void makeTapeTree(const std::string& root, int count, TapeAttributes kind) {
  const int directories = count / kFilesPerDirectory;
  const int workers = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
  std::filesystem::create_directories(root);
  std::vector<std::exception_ptr> errors(static_cast<std::size_t>(workers));
  const auto makeShare = [&](int worker) {
    for (int directory = worker; directory < directories; directory += workers) {
      const int first = directory * kFilesPerDirectory;
      const std::string path = root + "/" + treeDirectory(first);
      std::filesystem::create_directory(path);
      for (int file = first; file < first + kFilesPerDirectory; ++file) {
        makeTapeFile(path + "/" + treeFile(file), file, kind);
      }
    }
  };
  const auto work = [&](int worker) {
    try {
      makeShare(worker);
    } catch (...) {
      errors[static_cast<std::size_t>(worker)] = std::current_exception();
    }
  };
  {
    std::vector<std::jthread> threads;
    for (int worker = 0; worker < workers; ++worker) threads.emplace_back(work, worker);
  }
  for (const std::exception_ptr& error : errors) {
    if (error != nullptr) std::rethrow_exception(error);
  }
  constexpr std::string_view kBlockSize = "524288";
  if (setxattr(root.c_str(), "user.ltfs.volumeBlocksize", kBlockSize.data(), kBlockSize.size(), 0) != 0) {
    fail(root);
  }
}

}  // namespace tamrix::bench
