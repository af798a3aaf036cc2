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
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

namespace tamrix::test {

namespace {

constexpr int kMountRefused = 3;
constexpr int kEndMilliseconds = 60000;  // far more than it takes

// Runs a program found in PATH. Returns its exit status.
int run(std::vector<std::string> words) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  return pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Waits for a child's end; one that doesn't come is brought about. Returns the child's exit status.
int reap(pid_t pid) {
  const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  pollfd waited{process, POLLIN, 0};
  if (poll(&waited, 1, kEndMilliseconds) != 1) {
    ADD_FAILURE() << "tape_volume doesn't end";
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
  options.push_back("-layout=" + dir_.file("layout", layout));
  options.push_back("-account=" + accountFile_);
  options.push_back(dir_ / "tape");
  options.push_back(mountPoint_);

  const int fuse = open("/dev/fuse", O_RDWR | O_CLOEXEC);
  if (fuse < 0) {
    reason_ = std::string("/dev/fuse can't be opened: ") + std::strerror(errno);
    return;
  }
  close(fuse);
  start(std::move(options));
}

void MountedVolume::start(std::vector<std::string> words) {
  words.insert(words.begin(), TAMRIX_TAPE_VOLUME);
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  std::array<int, 2> out{};
  ASSERT_EQ(pipe2(out.data(), O_CLOEXEC), 0);
  pid_ = fork();
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // a test that dies leaves no mount behind
    dup2(out[1], STDOUT_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(out[1]);
  waitUntilMounted(out[0]);
  close(out[0]);
}

void MountedVolume::waitUntilMounted(int from) {
  char first = 0;
  if (read(from, &first, 1) == 1) return;
  const int status = reap(std::exchange(pid_, -1));
  if (status == kMountRefused) {
    reason_ = "mounting a FUSE file system is refused here";
  } else {
    ADD_FAILURE() << "tape_volume ended with " << status;
  }
}

TapeAccount MountedVolume::unmount() {
  if (pid_ <= 0) return {};
  if (run({"fusermount3", "-u", mountPoint_}) != 0) {
    ADD_FAILURE() << mountPoint_ << " is still in use";
    run({"fusermount3", "-u", "-z", mountPoint_});
  }
  EXPECT_EQ(reap(std::exchange(pid_, -1)), 0);
  return readAccount();
}

TapeAccount MountedVolume::readAccount() const {
  TapeAccount account;
  std::ifstream in(accountFile_);
  std::string kind;
  double seconds = 0;
  while (in >> kind) {
    if (kind == "locate") {
      std::string path;
      std::getline(in >> seconds >> std::ws, path);
    } else if (kind == "read") {
      TapeAccount::Read& read = account.reads.emplace_back();
      std::getline(in >> read.bytes >> seconds >> std::ws, read.path);
    } else {
      in >> account.locates >> account.bytes >> account.seconds;
    }
  }
  return account;
}

}  // namespace tamrix::test
