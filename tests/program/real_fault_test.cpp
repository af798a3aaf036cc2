// Faults that need no help: full file systems, sources that change under the copy, limits of the process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "log/message_ids.h"
#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

using test::CopyScene;
using test::ProgramRun;
using test::RunningProgram;
using test::text;

// A small file system of its own in a directory; gone with it.
class SmallFileSystem {
 public:
  SmallFileSystem(std::string directory, long kilobytes, unsigned long flags = 0)
      : directory_(std::move(directory)),
        mounted_(mount("tamrix-test", directory_.c_str(), "tmpfs", flags,
                       ("size=" + std::to_string(kilobytes) + "k").c_str()) == 0) {}
  ~SmallFileSystem() {
    if (mounted_) umount2(directory_.c_str(), MNT_DETACH);
  }
  SmallFileSystem(const SmallFileSystem&) = delete;
  SmallFileSystem& operator=(const SmallFileSystem&) = delete;
  bool mounted() const { return mounted_; }

 private:
  const std::string directory_;
  const bool mounted_;
};

constexpr const char* kNoMount = "mounting a file system takes an administrator";

TEST(FullFileSystem, keepsTheFilesThatFitAndNothingOfTheOneThatDoesNot) {
  struct Row {
    const char* what;
    std::size_t size;  // of the file that does not fit in 256 KiB
    const char* bufferSize;
  };
  for (const Row& row : std::vector<Row>{{"full in the middle", 800000, "-buffer-size=16KB"},
                                         {"full at the very last buffer", 4096 * 61 + 1, "-buffer-size=4KB"},
                                         {"one buffer that fits in part", 400000, "-buffer-size=1MB"}}) {
    const CopyScene scene;
    scene.addSource("a", std::string(12288, 'a'));
    const std::string b = scene.addSource("b", std::string(row.size, 'b'));
    scene.addSource("c", "c");
    const SmallFileSystem target(scene.dir() / "target", 256);
    if (!target.mounted()) GTEST_SKIP() << kNoMount;
    const ProgramRun run = scene.copy({row.bufferSize});
    EXPECT_EQ(run.status, 1) << row.what << run;
    EXPECT_EQ(run.count(text(msg::kStatusError, b, scene.destination("b"))), 1) << row.what << run;
    EXPECT_EQ(run.count(text(msg::kWriteDeleted, scene.destination("b"))), 1) << row.what << run;
    const auto copied = scene.copied();
    EXPECT_TRUE(copied.size() == 1 && copied.contains("a")) << row.what << run;
  }
}

TEST(ReadOnlyFileSystem, isToldAndNothingElseHappens) {
  const CopyScene scene;
  scene.addSource("sub/a");
  const SmallFileSystem target(scene.dir() / "target", 256, MS_RDONLY);
  if (!target.mounted()) GTEST_SKIP() << kNoMount;
  const ProgramRun run = scene.copy({"-recursive"});
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_EQ(run.count(text(msg::kWriteSubdirFailed, scene.destination("sub"))), 1) << run;
}

// The question about the second file holds the run between listing and reading the first.
TEST(ChangedSource, betweenListingAndReading) {
  struct Row {
    const char* what;
    std::function<void(const std::string&)> change;
    std::string message;  // empty: the run goes well
    std::string content;  // of the copy then
  };
  const std::string listed = "as listed";
  const auto none = [](const std::string&) {};
  for (const Row& row : std::vector<Row>{
           {"unchanged", none, "", listed},
           {"removed", [](const std::string& path) { unlink(path.c_str()); }, "ERROR Opening file", ""},
           {"shrunk", [](const std::string& path) { std::filesystem::resize_file(path, 3); },
            "ERROR Source file ended early", ""},
           {"emptied", [](const std::string& path) { std::filesystem::resize_file(path, 0); },
            "ERROR Source file ended early", ""},
           {"grown", [](const std::string& path) { std::filesystem::resize_file(path, 3000000); }, "",
            listed},
           {"replaced by a directory",
            [](const std::string& path) { unlink(path.c_str()), mkdir(path.c_str(), 0700); },
            "ERROR Reading data", ""},
           {"replaced by a FIFO",
            [](const std::string& path) { unlink(path.c_str()), mkfifo(path.c_str(), 0600); },
            "ERROR Source file ended early", ""},
       }) {
    const CopyScene scene;
    const std::string first = scene.addSource("1", listed);
    scene.addSource("2", "new");
    scene.addDestination("2");
    std::vector<std::string> args =
        scene.batch({{first, scene.destination("1")}, {scene.source("2"), scene.destination("2")}});
    args.emplace_back("-interactive");
    RunningProgram program(args);
    ASSERT_TRUE(program.waitForText("(y/n/a) ")) << row.what;
    row.change(first);
    program.send("y\n");
    const ProgramRun& run = program.wait();
    auto copied = scene.copied();
    EXPECT_EQ(run.status, row.message.empty() ? 0 : 1) << row.what << run;
    EXPECT_NE(run.err.find(row.message), std::string::npos) << row.what << run;
    EXPECT_EQ(copied.contains("1"), row.message.empty()) << row.what << run;
    if (row.message.empty()) {
      EXPECT_EQ(copied["1"], row.content) << row.what;
    }
    EXPECT_EQ(copied["2"], row.message.empty() ? "new" : "old") << row.what << run;
  }
}

// The words that a run says at a point, at the level DEBUG, tell when to interrupt it there.
TEST(Interrupted, whereverTheRunIsItEndsWithWholeFilesOrNone) {
  struct Row {
    const char* where;
    std::string words;  // empty: as soon as it is started
  };
  const CopyScene scene;
  for (int i = 0; i < 3000; ++i) scene.addSource("many/" + std::to_string(i), "x");
  scene.addLargeSource("large", 1LL << 33);
  for (const Row& row : std::vector<Row>{{"at start", ""},
                                         {"while listing", "FRM:SFLgetNextFile - Next file"},
                                         {"while the reader waits", text(msg::kRingStarved, 0)},
                                         {"while the writer waits", text(msg::kRingStarved, 1)}}) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      RunningProgram program(
          scene.args({"-recursive", "-loglevel=DEBUG", "-buffer-size=4KB", "-total-buffer-size=16KB"}));
      if (!row.words.empty()) {
        EXPECT_TRUE(program.waitForText(row.words)) << row.where;
      }
      program.signal(number);
      const int status = program.wait().status;
      // Before it is ready for signals there is nothing yet to end in good order.
      EXPECT_TRUE(status == 128 + number || (row.words.empty() && status == -number)) << row.where << status;
      for (const auto& [name, content] : scene.copied()) {
        EXPECT_TRUE(content == "<dir>" || content == "x") << name << " is left half, " << row.where;
      }
    }
  }
}

// Whatever a limit cuts off, the run ends, says so, and leaves whole files or none.
class Limits : public testing::Test {
 protected:
  // Runs under `limit`; returns whether all went well.
  bool runUnder(__rlimit_resource resource, rlim_t limit) {
    const CopyScene scene;
    for (const char* name : {"a", "b/c/d", "e"}) scene.addSource(name, std::string(50000, *name));
    const ProgramRun run = scene.copy({"-recursive", "-buffer-size=4KB", "-total-buffer-size=64KB"},
                                      {.limits = {{resource, limit}}});
    for (const auto& [name, content] : scene.copied()) {
      EXPECT_TRUE(content == "<dir>" || content.size() == 50000) << name << " under " << limit << run;
    }
    // Under a low limit on memory the program may not even be loaded.
    EXPECT_TRUE(run.status == 0 || run.status < 0 || run.status == 127 ||
                run.err.find("ERROR") != run.err.npos || run.out.find("Unable") != run.out.npos ||
                (run.out + run.err).find('-') == run.out.npos)
        << limit << run;
    noThread_ = noThread_ || run.err.find("ERROR Cannot start module") != run.err.npos;
    return run.status == 0;
  }

  bool noThread_ = false;  // whether a run could not start a stage
};

TEST_F(Limits, onDescriptors) {
  int worked = 0;
  for (rlim_t limit = 3; limit < 12; ++limit) worked += runUnder(RLIMIT_NOFILE, limit) ? 1 : 0;
  EXPECT_GT(worked, 0);
  EXPECT_LT(worked, 9);
}

TEST_F(Limits, onMemoryAndThreads) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer needs more address space than the limits leave";
#endif
  int worked = 0;
  int failed = 0;
  constexpr rlim_t kStep = 2 << 20;
  for (rlim_t limit = 4 * kStep; worked < 2 && limit < 200 * kStep; limit += kStep) {
    (runUnder(RLIMIT_AS, limit) ? worked : failed) += 1;
  }
  EXPECT_GT(worked, 0);
  EXPECT_GT(failed, 0);
  EXPECT_TRUE(noThread_);
}

}  // namespace
}  // namespace tamrix
