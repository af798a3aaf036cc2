#include "tests/support/mounted_volume.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

namespace tamrix::test {

namespace {

constexpr int kMountRefused = 3;
constexpr int kEndMilliseconds = 60000;  // far more than it takes

// Starts a program found in PATH; its standard output is `out`. Returns its process.
pid_t start(std::vector<std::string> words, int out = STDOUT_FILENO) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGTERM);  // a test that dies leaves no mount behind
  dup2(out, STDOUT_FILENO);
  execvp(argv[0], argv.data());
  _exit(127);
}

// Waits for a child's end; one that doesn't come is brought about. Returns the child's exit status.
int reap(pid_t pid) {
  const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  pollfd waited{process, POLLIN, 0};
  if (poll(&waited, 1, kEndMilliseconds) != 1) {
    ADD_FAILURE() << "a program doesn't end";
    kill(pid, SIGKILL);
  }
  close(process);
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace

MountedVolume::MountedVolume(const std::vector<File>& files, std::vector<std::string> options) {
  std::filesystem::create_directory(dir_ / "tape");
  std::filesystem::create_directory(mountPoint_);
  std::string layout;
  for (const File& file : files) {
    dir_.file("tape/" + std::string(file.path), file.content);
    if (file.partition == 0) continue;
    layout +=
        std::string{file.partition, ' '} + std::to_string(file.block) + ' ' + std::string(file.path) + '\n';
  }
  options.insert(options.begin(), TAMRIX_TAPE_VOLUME);
  options.insert(options.end(), {"-layout=" + dir_.file("layout", layout), "-account=" + accountFile_,
                                 dir_ / "tape", mountPoint_});
  const int fuse = open("/dev/fuse", O_RDWR | O_CLOEXEC);
  if (fuse < 0) {
    reason_ = std::string("/dev/fuse can't be opened: ") + std::strerror(errno);
    return;
  }
  close(fuse);
  std::array<int, 2> out{};
  if (pipe2(out.data(), O_CLOEXEC) != 0) std::abort();
  pid_ = start(std::move(options), out[1]);
  close(out[1]);
  char first = 0;
  if (read(out[0], &first, 1) != 1) {
    const int status = reap(std::exchange(pid_, -1));
    reason_ = "mounting a FUSE file system is refused here";
    if (status != kMountRefused) ADD_FAILURE() << "tape_volume ended with " << status;
  }
  close(out[0]);
}

std::vector<std::string> MountedVolume::unmount() {
  if (pid_ <= 0) return {};
  EXPECT_EQ(reap(start({"fusermount3", "-u", "-z", mountPoint_})), 0);
  EXPECT_EQ(reap(std::exchange(pid_, -1)), 0);
  std::vector<std::string> paths;
  std::ifstream in(accountFile_);
  for (std::string path; std::getline(in, path);) paths.push_back(path);
  return paths;
}

}  // namespace tamrix::test
