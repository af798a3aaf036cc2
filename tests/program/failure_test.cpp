// What can go wrong while copying, and what is left behind then: whole files or none.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <map>
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

using Contents = std::map<std::string, std::string>;

TEST(Failure, destinationsThatCannotBeMadeEndTheRun) {
  const CopyScene scene;
  const std::string a = scene.addSource("a");
  std::filesystem::create_directory(scene.destination("dir"));
  scene.addDestination("file");
  ASSERT_EQ(mkfifo(scene.destination("fifo").c_str(), 0600), 0);
  std::filesystem::create_directory(scene.destination("locked"));
  chmod(scene.destination("locked").c_str(), 0500);
  const auto second = [](int error) { return text(msg::kWriteSecondCreateFailed, strerror(error)); };
  struct Row {
    std::string destination;
    std::vector<std::string> messages;
  };
  const std::vector<Row> rows = {
      {scene.destination("dir"), {second(EISDIR)}},
      {scene.destination("file/a"), {second(ENOTDIR)}},
      {scene.destination("file/sub/a"),
       {text(msg::kSubdirParentOkFailed, strerror(ENOTDIR)),
        text(msg::kWriteSubdirFailed, scene.destination("file/sub"))}},
      {scene.destination("fifo"), {second(ENXIO)}},
      {scene.destination("locked/a"), {second(EACCES)}},
      {scene.destination("locked/sub/deep/a"),
       {text(msg::kWriteSubdirFailed, scene.destination("locked/sub"))}},
      {scene.destination(std::string(256, 'n')), {second(ENAMETOOLONG)}},
  };
  const Contents before = scene.copied();
  for (const Row& row : rows) {
    const ProgramRun run = scene.copyBatch({{a, row.destination}});
    EXPECT_EQ(run.status, 1) << run;
    for (const std::string& message : row.messages) EXPECT_EQ(run.count(message), 1) << message << run;
    EXPECT_EQ(scene.copied(), before) << run;
  }
  chmod(scene.destination("locked").c_str(), 0700);
}

TEST(Failure, missingDirectoriesAreMade) {
  const CopyScene scene;
  const std::string a = scene.addSource("a");
  const std::string deep = scene.destination("one/two//three/./four/a");
  EXPECT_EQ(scene.copyBatch({{a, deep}}, {.umask = 077}).status, 0);
  EXPECT_EQ(test::readFile(deep), "new");
  struct stat status {};
  ASSERT_EQ(stat(scene.destination("one").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700U);
}

TEST(Failure, aDestinationThatAnotherProcessHasLockedIsNotWrittenTo) {
  const CopyScene scene;
  scene.addSource("a");
  const std::string locked = scene.addDestination("a");
  const int fd = open(locked.c_str(), O_RDWR | O_CLOEXEC);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(fcntl(fd, F_SETLK, &lock), 0);
  const ProgramRun run = scene.copy();
  close(fd);
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_EQ(run.count(text(msg::kWriteLockFailed, locked, strerror(EAGAIN))), 1) << run;
  // Kept: emptied by the time the lock is asked for, and left to the one who holds it.
  EXPECT_EQ(scene.copied(), (Contents{{"a", ""}}));
}

TEST(Failure, aFileOverTheSizeLimitIsDeletedAndReported) {
  const CopyScene scene;
  const std::string a = scene.addSource("a", std::string(100, 'a'));
  const std::string b = scene.addSource("b", std::string(200000, 'b'));
  const std::string c = scene.addSource("c", std::string(100, 'c'));
  const std::string tooLarge = text(msg::kWriteFailed, strerror(EFBIG));
  struct Row {
    std::vector<std::string> options;
    std::string message;
  };
  const std::vector<Row> rows = {
      {{"-buffer-size=50000B"}, tooLarge},
      {{"-buffer-size=30000B"}, tooLarge},
      {{"-buffer-size=1MB"}, text(msg::kWriteIncomplete, scene.destination("b"), 150000, 200000)},
      {{"-sparse"}, text(msg::kWriteTruncateFailed)},
  };
  for (const Row& row : rows) {
    const ProgramRun run = scene.copy(row.options, {.limits = {{RLIMIT_FSIZE, 150000}}});
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(row.message), 1) << row.message << run;
    EXPECT_EQ(run.count(text(msg::kStatusError, b, scene.destination("b"))), 1) << run;
    EXPECT_EQ(run.count(text(msg::kWriteDeleted, scene.destination("b"))), 1) << run;
    EXPECT_EQ(scene.copied(), (Contents{{"a", std::string(100, 'a')}})) << run;
  }
}

TEST(Failure, behindALinkNoHalfFileIsLeftAndTheLinkStays) {
  const CopyScene scene;
  scene.addSource("a", std::string(200000, 'a'));
  const std::string real = scene.dir().file("elsewhere", "old");
  ASSERT_EQ(symlink(real.c_str(), scene.destination("a").c_str()), 0);
  const ProgramRun run = scene.copy({}, {.limits = {{RLIMIT_FSIZE, 150000}}});
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_EQ(run.count(text(msg::kWriteDeleted, scene.destination("a"))), 1) << run;
  EXPECT_FALSE(std::filesystem::exists(real));
  EXPECT_TRUE(std::filesystem::is_symlink(scene.destination("a")));
}

TEST(Failure, whatIsNoRegularFileIsNotDeleted) {
  const CopyScene scene;
  scene.addSource("a");
  const std::string fifo = scene.destination("a");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const ProgramRun run = scene.copy();
  close(reader);
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_EQ(run.count(text(msg::kWriteSeekFailed, 0, strerror(ESPIPE))), 1) << run;
  EXPECT_EQ(run.count(text(msg::kWriteDeleteFailed, fifo, strerror(EPERM))), 1) << run;
  EXPECT_TRUE(std::filesystem::is_fifo(fifo));
}

// Starts copying a file that is far too large to be done before a signal comes.
RunningProgram& waitUntilCopying(RunningProgram& program) {
  EXPECT_TRUE(program.waitForText("\nCopy "));
  return program;
}

constexpr long long kFarTooLarge = 1LL << 33;
const std::vector<std::string> kSlowly = {"-buffer-size=4KB", "-total-buffer-size=64KB"};

TEST(Interrupt, theFirstSignalLeavesNoHalfFile) {
  const CopyScene scene;
  const std::string a = scene.addLargeSource("a", kFarTooLarge);
  for (const bool sparse : {false, true}) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      std::vector<std::string> args = scene.args(kSlowly);
      if (sparse) args.push_back("-sparse");
      RunningProgram program(args);
      waitUntilCopying(program).signal(number);
      const ProgramRun& run = program.wait();
      EXPECT_EQ(run.status, 128 + number) << run;
      EXPECT_EQ(run.count(text(msg::kMainInterrupted, number)), 1) << run;
      EXPECT_EQ(run.count(text(msg::kStatusError, a, scene.destination("a"))), 1) << run;
      EXPECT_EQ(run.count(text(msg::kMainEnded, 128 + number)), 1) << run;
      EXPECT_TRUE(scene.copied().empty()) << run;
    }
  }
}

TEST(Interrupt, theSecondSignalEndsTheProcessAtOnce) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer puts signals off to a time of its own";
#endif
  const CopyScene scene;
  scene.addLargeSource("a", kFarTooLarge);
  RunningProgram program(scene.args(kSlowly));
  waitUntilCopying(program).signal(SIGSTOP);  // both wait for it when it goes on
  program.signal(SIGINT);
  program.signal(SIGTERM);
  program.signal(SIGCONT);
  EXPECT_EQ(program.wait().status, -SIGTERM) << program.wait();
}

TEST(Interrupt, anIgnoredHangUpStaysIgnored) {
  const CopyScene scene;
  scene.addSource("a");
  scene.addDestination("a");
  RunningProgram program(scene.args({"-interactive"}), {.ignoredSignals = {SIGHUP}});
  EXPECT_TRUE(program.waitForText("(y/n/a) "));
  program.signal(SIGHUP);
  program.send("y\n");
  EXPECT_EQ(program.wait().status, 0) << program.wait();
  EXPECT_EQ(scene.copied(), (Contents{{"a", "new"}}));
}

}  // namespace
}  // namespace tamrix
