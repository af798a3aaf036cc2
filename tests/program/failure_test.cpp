// What can go wrong while copying, and what is left behind then: whole files or none.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

TEST(Failure, destinationsThatCannotBeMadeEndTheRun) {
  const CopyScene scene;
  const std::string a = scene.addSource("a");
  std::filesystem::create_directory(scene.destination("dir"));
  std::filesystem::create_directory(scene.destination("locked"));
  scene.addDestination("file");
  ASSERT_EQ(mkfifo(scene.destination("fifo").c_str(), 0600), 0);
  chmod(scene.destination("locked").c_str(), 0500);
  const auto second = [](int error) { return text(msg::kWriteSecondCreateFailed, strerror(error)); };
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"dir", second(EISDIR)},
      {"file/a", second(ENOTDIR)},
      {"file/sub/a", text(msg::kWriteSubdirFailed, scene.destination("file/sub"))},
      {"fifo", second(ENXIO)},
      {"locked/a", second(EACCES)},
      {"locked/sub/deep/a", text(msg::kWriteSubdirFailed, scene.destination("locked/sub"))}};
  const Contents before = scene.copied();
  for (const auto& [destination, message] : rows) {
    const ProgramRun run = scene.copyBatch({{a, scene.destination(destination)}});
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(message), 1) << message << run;
    EXPECT_EQ(scene.copied(), before) << run;
  }
  chmod(scene.destination("locked").c_str(), 0700);
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
  scene.addSource("a", "small");
  const std::string b = scene.addSource("b", std::string(200000, 'b'));
  const std::string to = scene.destination("b");
  const std::string behindLink = scene.dir() / "elsewhere";
  scene.addSource("c", "small");
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"-buffer-size=50000B", text(msg::kWriteFailed, strerror(EFBIG))},
      {"-buffer-size=1MB", text(msg::kWriteIncomplete, to, 150000, 200000)},
      {"-sparse", text(msg::kWriteTruncateFailed)}};
  for (const auto& [option, message] : rows) {
    for (const bool linked : {false, true}) {
      if (linked) std::filesystem::create_symlink(behindLink, to);
      const ProgramRun run = scene.copy({option}, {.limits = {{RLIMIT_FSIZE, 150000}}});
      EXPECT_EQ(run.status, 1) << run;
      EXPECT_EQ(run.count(message), 1) << message << run;
      EXPECT_EQ(run.count(text(msg::kStatusError, b, to)), 1) << run;
      EXPECT_EQ(run.count(text(msg::kWriteDeleted, to)), 1) << run;
      // What is deleted is the file behind a link; the link stays.
      EXPECT_FALSE(std::filesystem::exists(behindLink));
      EXPECT_EQ(std::filesystem::remove(to), linked);
      EXPECT_EQ(scene.copied(), (Contents{{"a", "small"}})) << run;
    }
  }
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
  EXPECT_EQ(run.count(text(msg::kWriteDeleteFailed, fifo, strerror(EPERM))), 1) << run;
  EXPECT_TRUE(std::filesystem::is_fifo(fifo));
}

const std::vector<std::string> kSlowly = {"-recursive", "-loglevel=DEBUG", "-buffer-size=4KB",
                                          "-total-buffer-size=16KB"};

// The words that a run says at a point, at the level DEBUG, tell when to interrupt it there.
TEST(Interrupt, whereverTheRunIsItEndsWithWholeFilesOrNone) {
  const CopyScene scene;
  for (int i = 0; i < 3000; ++i) scene.addSource("many/" + std::to_string(i), "x");
  scene.addEndlessSource("large");
  const std::vector<std::string> places = {"",  // as soon as it is started
                                           "FRM:SFLgetNextFile - Next file", text(msg::kRingStarved, 0),
                                           text(msg::kRingStarved, 1)};
  for (const std::string& words : places) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      RunningProgram program(scene.args(kSlowly));
      EXPECT_TRUE(words.empty() || program.waitForText(words)) << words;
      program.signal(number);
      const int status = program.wait().status;
      // Before it is ready for signals there is nothing yet to end in good order.
      EXPECT_TRUE(status == 128 + number || (words.empty() && status == -number)) << words << status;
      for (const auto& [name, content] : scene.copied())
        EXPECT_TRUE(content == "<dir>" || content == "x") << name << " is left half, " << words;
    }
  }
}

TEST(Interrupt, theFirstSignalEndsACopyThatIsReported) {
  const CopyScene scene;
  const std::string a = scene.addEndlessSource("a");
  for (const auto& [number, sparse] : {std::pair(SIGINT, "-sparse"), {SIGHUP, "-sparse=disable"}}) {
    std::vector<std::string> args = scene.args(kSlowly);
    args.push_back(sparse);
    RunningProgram program(args);
    EXPECT_TRUE(program.waitForText("\nCopy "));
    program.signal(number);
    const ProgramRun& run = program.wait();
    EXPECT_EQ(run.count(text(msg::kMainInterrupted, number)), 1) << run;
    EXPECT_EQ(run.count(text(msg::kStatusError, a, scene.destination("a"))), 1) << run;
    EXPECT_EQ(run.count(text(msg::kMainEnded, 128 + number)), 1) << run;
    EXPECT_TRUE(scene.copied().empty()) << run;
  }
}

TEST(Interrupt, theSecondSignalEndsTheProcessAtOnce) {
#if defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizer puts signals off to a time of its own";
#endif
  const CopyScene scene;
  scene.addEndlessSource("a");
  RunningProgram program(scene.args(kSlowly));
  EXPECT_TRUE(program.waitForText("\nCopy "));
  // Both wait for it when it goes on.
  for (const int number : {SIGSTOP, SIGINT, SIGTERM, SIGCONT}) program.signal(number);
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
