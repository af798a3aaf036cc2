#include "tests/support/mounted_volume.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <fstream>

namespace tamrix::test {

namespace {
constexpr int kMountRefused = 3;
}

MountedVolume::MountedVolume(const std::vector<File>& files, const std::vector<std::string>& options) {
  std::string layout;
  for (const File& file : files) {
    dir_.file("tape/" + file.path, file.content);
    layout += file.partition + (" " + std::to_string(file.block)) + " " + file.path + "\n";
  }
  for (const std::string& name : {backing(""), mountPoint_}) std::filesystem::create_directories(name);
  std::array<int, 2> out{};
  EXPECT_EQ(pipe2(out.data(), O_CLOEXEC), 0);
  model::ChildSetup setup{.words = {TAMRIX_TAPE_VOLUME}, .descriptors = {{STDOUT_FILENO, out[1]}}};
  setup.words.insert(setup.words.end(), options.begin(), options.end());
  setup.words.insert(setup.words.end(), {"-layout=" + dir_.file("layout", layout),
                                         "-account=" + (dir_ / "account"), backing(""), mountPoint_});
  // A test that dies leaves no mount behind.
  setup.prepare = [] { return prctl(PR_SET_PDEATHSIG, SIGTERM) == 0; };
  served_.emplace(std::move(setup));
  close(out[1]);
  char first = 0;
  if (read(out[0], &first, 1) != 1) {
    EXPECT_EQ(served_->wait().status, kMountRefused);
    served_.reset();
  }
  close(out[0]);
}

TapeAccount MountedVolume::unmount() {
  TapeAccount account;
  if (!served_) return account;
  if (model::ChildProcess({{"fusermount3", "-u", mountPoint_}}).wait().status != 0) {
    ADD_FAILURE() << mountPoint_ << " is still in use";
    served_->signal(SIGTERM);
  }
  EXPECT_EQ(served_->wait().status, 0);
  served_.reset();
  std::ifstream in(dir_ / "account");
  std::string path;
  double number = 0;
  for (std::string kind; in >> kind;) {
    if (kind == "locate") {
      std::getline(in >> number >> std::ws, path);
    } else if (kind == "read") {
      std::getline(in >> number >> number >> std::ws, account.reads.emplace_back());
    } else {
      in >> account.locates >> account.bytes >> account.seconds;
    }
  }
  return account;
}

}  // namespace tamrix::test
