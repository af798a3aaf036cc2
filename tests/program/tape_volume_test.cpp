// Copies from and to a modelled tape volume: what is read of it, and what it refuses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "log/message_ids.h"
#include "tests/support/program_run.h"
#include "tests/support/temp_dir.h"

namespace tamrix {
namespace {

using test::ProgramRun;
using test::readFile;
using test::TempDir;
using test::text;

// A directory seen through the tape_volume program. Mounted while it lives, or until unmount.
class MountedVolume {
 public:
  struct File {
    std::string path;
    std::string content;
    std::string position;  // partition and block
  };

  explicit MountedVolume(const std::vector<File>& files) {
    for (const char* name : {"tape", "volume"}) std::filesystem::create_directory(dir_ / name);
    std::string positions;
    for (const File& file : files) {
      dir_.file("tape/" + file.path, file.content);
      positions += file.position + " " + file.path + "\n";
    }
    const std::string layout = dir_.file("layout", positions);
    std::array<int, 2> out{};
    EXPECT_EQ(pipe2(out.data(), O_CLOEXEC), 0);
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGTERM);  // a test that dies leaves no mount behind
      dup2(out[1], STDOUT_FILENO);
      execl(TAMRIX_TAPE_VOLUME, "tape_volume", (dir_ / "tape").c_str(), path().c_str(), layout.c_str(),
            (dir_ / "account").c_str(), nullptr);
      _exit(127);
    }
    close(out[1]);
    char first = 0;
    mounted_ = read(out[0], &first, 1) == 1;
    close(out[0]);
  }
  ~MountedVolume() { unmount(); }
  MountedVolume(const MountedVolume&) = delete;
  MountedVolume& operator=(const MountedVolume&) = delete;

  bool isMounted() const { return mounted_; }
  std::string path() const { return dir_ / "volume"; }
  std::string operator/(const std::string& name) const { return path() + "/" + name; }
  // The file behind the one of the volume.
  std::string backing(const std::string& name) const { return dir_ / ("tape/" + name); }

  // Returns which files were read, once for every stretch that was read in one go.
  std::vector<std::string> unmount() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      int status = 0;
      waitpid(std::exchange(pid_, -1), &status, 0);
      EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, mounted_ ? 0 : 3);
    }
    std::istringstream account(readFile(dir_ / "account"));
    std::vector<std::string> paths;
    for (std::string line; std::getline(account, line);) paths.push_back(line);
    return paths;
  }

 private:
  TempDir dir_;
  pid_t pid_ = -1;
  bool mounted_ = false;
};

#define SKIP_UNLESS_MOUNTED(volume) \
  if (!(volume).isMounted()) GTEST_SKIP() << "mounting a FUSE file system is refused here"

// A content that tells where it is from.
std::string content(char letter, std::size_t size) {
  std::string made(size, letter);
  for (std::size_t i = 0; i < size; i += 61) made[i] = static_cast<char>('0' + i / 61 % 10);
  return made;
}

// Files whose names say nothing about where they lie, in tape order.
std::vector<MountedVolume::File> scatteredFiles() {
  return {{"index", content('i', 8192), "a 5000"},     {"d", content('d', 8192), "b 1000"},
          {"b/2", content('2', 4097), "b 1002"},       {"a", content('a', 12288), "b 1220703125"},
          {"e", content('e', 4095), "b 99220703125"},  {"b/1", content('1', 10), "b 99230703125"},
          {"c", content('c', 286720), "b 99240703125"}};
}

ProgramRun copy(const std::string& from, const std::string& to, const std::vector<std::string>& more) {
  std::vector<std::string> args = {"-srcpath=" + from, "-srcspec=*", "-dstpath=" + to, "-loglevel=PROGRESS"};
  args.insert(args.end(), more.begin(), more.end());
  return test::runProgram(args);
}

TEST(TapeVolume, copiesFromItReadEveryFileOnceInTapeOrder) {
  const std::vector<MountedVolume::File> files = scatteredFiles();
  for (const char* buffer : {"-buffer-size=1000B", "-buffer-size=4KB", "-buffer-size=1MB"}) {
    MountedVolume volume(files);
    SKIP_UNLESS_MOUNTED(volume);
    const TempDir target;
    const ProgramRun run = copy(volume.path(), target.path(), {"-recursive", buffer});
    EXPECT_EQ(run.status, 0) << run;
    std::vector<std::string> paths;
    for (const MountedVolume::File& file : files) {
      paths.push_back(file.path);
      EXPECT_TRUE(readFile(target / file.path) == file.content) << file.path << run;
    }
    EXPECT_EQ(volume.unmount(), paths) << run;
  }
}

TEST(TapeVolume, virtualAttributesRefusedAtTheDestinationCostAWarningEach) {
  const std::vector<MountedVolume::File> files = scatteredFiles();
  MountedVolume from(files);
  MountedVolume to({});
  SKIP_UNLESS_MOUNTED(from);
  SKIP_UNLESS_MOUNTED(to);
  test::setXattr(from / "a", "user.mine", "kept");
  const ProgramRun run = copy(from.path(), to / "new/deep", {"-recursive"});
  EXPECT_EQ(run.status, 0) << run;
  for (const char* name : {"softwareVendor", "volumeUUID", "volumeBlocksize", "partition", "startblock"}) {
    EXPECT_EQ(run.count(text(msg::kWriteXattrFailed, std::string("user.ltfs.") + name)),
              static_cast<int>(files.size()))
        << name << run;
  }
  EXPECT_EQ(run.count(text(msg::kWriteXattrFailed, "user.mine")), 0) << run;
  for (const MountedVolume::File& file : files) {
    const std::string path = "new/deep/" + file.path;
    EXPECT_EQ(run.count(text(msg::kStatusWarning, from / file.path, to / path)), 1) << file.path << run;
    EXPECT_TRUE(readFile(to.backing(path)) == file.content) << file.path;
  }
  EXPECT_EQ(test::getXattr(to / "new/deep/a", "user.mine"), "kept");
}

TEST(TapeVolume, copiesOfOrdinaryFilesToItSucceedWithoutAWarning) {
  MountedVolume volume({{"old", "longer than what comes", "b 7"}});
  SKIP_UNLESS_MOUNTED(volume);
  const TempDir source;
  const std::string path = source.file("old", "new");
  test::setXattr(path, "user.mine", "kept");
  const auto time = std::filesystem::file_time_type(std::chrono::seconds(1000000));
  std::filesystem::last_write_time(path, time);
  source.file("large", content('l', 3000000));
  for (const std::vector<std::string>& options :
       {std::vector<std::string>{}, {"-sparse", "-buffer-size=4KB"}}) {
    const ProgramRun run = copy(source.path(), volume.path(), options);
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(run.err.find("WARNING Error"), std::string::npos) << run;
    EXPECT_EQ(run.count(text(msg::kStatusSuccess, path, volume / "old")), 1) << run;
    EXPECT_EQ(readFile(volume.backing("old")), "new");
    EXPECT_EQ(test::getXattr(volume / "old", "user.mine"), "kept");
    EXPECT_EQ(std::filesystem::last_write_time(volume / "old"), time);
    EXPECT_TRUE(readFile(volume.backing("large")) == content('l', 3000000));
  }
}

}  // namespace
}  // namespace tamrix
