#include "bench/mounted_volume.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace tamrix::bench {

MountedVolume::MountedVolume(const std::string& program, std::string directory,
                             const std::vector<std::string>& options)
    : directory_(std::move(directory)) {
  std::array<int, 2> out{};
  if (pipe2(out.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  std::filesystem::create_directories(path());
  std::vector<std::string> words = {program, "-layout=" + directory_ + "/layout",
                                    "-account=" + directory_ + "/account"};
  words.insert(words.end(), options.begin(), options.end());
  words.insert(words.end(), {directory_ + "/tape", path()});
  served_.emplace(model::ChildSetup{.words = std::move(words), .descriptors = {{STDOUT_FILENO, out[1]}}});
  close(out[1]);
  char first = 0;
  isMounted_ = read(out[0], &first, 1) == 1;
  close(out[0]);
}

MountedVolume::~MountedVolume() { unmount(); }

void MountedVolume::unmount() {
  if (!served_) return;
  if (isMounted_) (void)model::ChildProcess({{"fusermount3", "-u", path()}}).wait();
  (void)served_->wait();
  served_.reset();
}

std::vector<double> MountedVolume::finish() {
  unmount();
  std::ifstream in(directory_ + "/account");
  for (std::string line; std::getline(in, line);) {
    if (!line.starts_with("total ")) continue;
    std::istringstream words(line.substr(line.find(' ')));
    return {std::istream_iterator<double>(words), {}};
  }
  throw std::runtime_error("the volume gave no account");
}

}  // namespace tamrix::bench
