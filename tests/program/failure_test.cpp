// What can go wrong while copying, and what is left behind then: whole files or none.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <optional>

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
  const auto second = [](int error) { return text(msg::kFileWriterSecondCreateFailed, strerror(error)); };
  const std::vector<std::pair<std::string, std::string>> rows = {
      {"dir", second(EISDIR)},
      {"file/a", second(ENOTDIR)},
      {"file/sub/a", text(msg::kFileWriterSubdirFailed, scene.destination("file/sub"))},
      {"fifo", second(ENXIO)},
      {"locked/a", second(EACCES)},
      {"locked/sub/deep/a", text(msg::kFileWriterSubdirFailed, scene.destination("locked/sub"))}};
  const Contents before = scene.copied();
  for (const auto& [destination, message] : rows) {
    const ProgramRun run = scene.copyBatch({{a, scene.destination(destination)}});
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(message), 1) << message << run;
    EXPECT_EQ(scene.copied(), before) << run;
  }
  chmod(scene.destination("locked").c_str(), 0700);
}

TEST(Failure, aDestinationThatAnotherProcessHasLockedStaysAsItIs) {
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
  EXPECT_EQ(run.count(text(msg::kFileWriterLockFailed, locked, strerror(EAGAIN))), 1) << run;
  EXPECT_EQ(scene.copied(), (Contents{{"a", "old"}}));
}

TEST(Copy, aDestinationThatAnotherProcessHasALeaseOnIsWaitedFor) {
  const CopyScene scene;
  scene.addSource("a");
  const int fd = open(scene.addDestination("a").c_str(), O_RDWR | O_CLOEXEC);
  sigset_t asked;
  sigemptyset(&asked);
  sigaddset(&asked, SIGIO);
  pthread_sigmask(SIG_BLOCK, &asked, nullptr);
  if (fcntl(fd, F_SETLEASE, F_WRLCK) != 0) GTEST_SKIP() << "no leases here";
  RunningProgram program(scene.args());
  const timespec patience = {60, 0};
  EXPECT_EQ(sigtimedwait(&asked, nullptr, &patience), SIGIO);  // told that somebody wants the file
  EXPECT_EQ(fcntl(fd, F_SETLEASE, F_UNLCK), 0);
  EXPECT_EQ(program.wait().status, 0) << program.wait();
  EXPECT_EQ(scene.copied(), (Contents{{"a", "new"}}));
  close(fd);
}

TEST(Failure, aFileOverTheSizeLimitIsDeletedAndReported) {
  const CopyScene scene;
  scene.addSource("a", "small");
  // More than the ring holds: the reader waits when the writer fails.
  const std::string b = scene.addSource("b", std::string(400000, 'b'));
  const std::string to = scene.destination("b");
  const std::string behindLink = scene.dir() / "elsewhere";
  scene.addSource("c", "small");
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
      {{"-buffer-size=50000B", "-total-buffer-size=100000B"}, text(msg::kFileWriterFailed, strerror(EFBIG))},
      {{"-buffer-size=1MB"}, text(msg::kFileWriterIncomplete, to, 150000, 400000)},
      {{"-sparse"}, text(msg::kFileWriterTruncateFailed)}};
  for (const auto& [options, message] : rows) {
    for (const bool linked : {false, true}) {
      if (linked) std::filesystem::create_symlink(behindLink, to);
      const ProgramRun run = scene.copy(options, {.limits = {{RLIMIT_FSIZE, 150000}}});
      EXPECT_EQ(run.status, 1) << run;
      EXPECT_EQ(run.count(message), 1) << message << run;
      EXPECT_EQ(run.count(text(msg::kFileWriterStatusError, b, to)), 1) << run;
      EXPECT_EQ(run.count(text(msg::kFileWriterDeleted, to)), 1) << run;
      EXPECT_EQ(run.count(text(msg::kMainFilesNotCopied, 1, 2)), 1) << run;
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
  EXPECT_EQ(run.count(text(msg::kFileWriterDeleteFailed, fifo, strerror(EPERM))), 1) << run;
  EXPECT_TRUE(std::filesystem::is_fifo(fifo));
}

const std::vector<std::string> kSlowly = {"-recursive", "-loglevel=DEBUG", "-buffer-size=4KB",
                                          "-total-buffer-size=16KB"};

// The words that a run says at a point, at the level DEBUG, tell when to interrupt it there.
TEST(Interrupt, whereverTheRunIsItEndsWithWholeFilesOrNone) {
  const CopyScene scene;
  for (int i = 0; i < 3000; ++i) scene.addSource("many/" + std::to_string(i), "x");
  const std::string large = scene.addEndlessSource("large");
  const std::string copying = "\nCopy " + large;
  for (const std::string& words : {std::string(),  // as soon as it is started
                                   std::string("FRM:SFLgetNextFile - Next file"), copying,
                                   text(msg::kRingStarved, 0), text(msg::kRingStarved, 1)}) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      RunningProgram program(scene.args(kSlowly));
      EXPECT_TRUE(words.empty() || program.waitForText(words)) << words;
      program.signal(number);
      if (number == SIGHUP) program.signal(number);  // a closing terminal sends two
      const ProgramRun& run = program.wait();
      for (const auto& [name, content] : scene.copied())
        EXPECT_TRUE(content == "<dir>" || content == "x") << name << " is left half, " << words;
      // Before it is ready for signals there is nothing yet to end in good order.
      if (words.empty() && run.status == -number) continue;
      EXPECT_EQ(run.status, 128 + number) << words << run;
      EXPECT_EQ(run.count(text(msg::kMainStopping, number)), 1) << run;
      EXPECT_EQ(run.count(text(msg::kMainInterrupted, number)), 1) << run;
      EXPECT_EQ(run.count(text(msg::kMainEnded, 128 + number)), 1) << run;
      if (words != copying) continue;
      EXPECT_EQ(run.count(text(msg::kFileWriterStatusError, large, scene.destination("large"))), 1) << run;
    }
  }
}

TEST(Interrupt, aLongBatchFileIsLeftInEachOfItsPasses) {
  const CopyScene scene;
  constexpr int kLast = 20000;
  std::string xml = "<tamrixspec version='1.0'><data><file><srcpath>/s</srcpath><dstpath>/d</dstpath>";
  for (int i = 0; i <= kLast; ++i) xml += "<sf>" + std::to_string(i) + "</sf>";
  const std::string batch = scene.dir().file("batch.xml", xml + "</file></data></tamrixspec>");
  const auto pair = [](auto id, int i) {
    return text(id, "/s/" + std::to_string(i), "/d/" + std::to_string(i));
  };
  const std::pair<std::string, std::string> rows[] = {
      {text(msg::kBatchParamText, "0"), text(msg::kBatchParamText, std::to_string(kLast))},
      {text(msg::kBatchTextSf, "0"), text(msg::kBatchTextSf, std::to_string(kLast))},
      {pair(msg::kBatchPair, 0), pair(msg::kBatchPair, kLast)},
      {pair(msg::kBatchFileListerPair, 0), pair(msg::kBatchFileListerPair, kLast)},
      {pair(msg::kBatchFileListerNextPair, 0), pair(msg::kBatchFileListerNextPair, kLast)}};
  for (const auto& [first, last] : rows) {
    RunningProgram program({"-batchfile=" + batch, "-loglevel=DEBUG"});
    EXPECT_TRUE(program.waitForText(first + "\n")) << first;
    program.signal(SIGINT);
    const ProgramRun& run = program.wait();
    EXPECT_EQ(run.status, 128 + SIGINT) << first;
    EXPECT_EQ(run.count(last), 0) << first;
    EXPECT_EQ(run.count(text(msg::kMainInterrupted, SIGINT)), 1) << first;
    EXPECT_EQ(run.count(text(msg::kBatchFileListerFailed)), 0) << first;
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
  // All wait for it when it goes on.
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

// Whatever a limit cuts off, the run ends, says so, and leaves whole files or none.
TEST(Limits, onDescriptorsMemoryAndThreads) {
  struct Row {
    __rlimit_resource resource;
    rlim_t first;
    rlim_t step;
    const char* reached;  // what a run says that went far
  };
  std::vector<Row> rows = {{RLIMIT_NOFILE, 3, 1, ""}};
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // their own memory passes every limit
  rows.push_back({RLIMIT_AS, 8 << 20, 2 << 20, "ERROR Cannot start module"});
#endif
  const CopyScene scene;
  for (const char* name : {"a", "b/c/d", "e"}) scene.addSource(name, std::string(50000, *name));
  for (const Row& row : rows) {
    bool reached = false;
    int worked = 0;
    for (rlim_t limit = row.first; worked < 2; limit += row.step) {
      const ProgramRun run = scene.copy({"-recursive", "-buffer-size=4KB", "-total-buffer-size=64KB"},
                                        {.limits = {{row.resource, limit}}});
      for (const auto& [name, content] : scene.copied())
        EXPECT_TRUE(content == "<dir>" || content.size() == 50000) << name << " under " << limit << run;
      // Under a low limit on memory the program may not even be loaded.
      EXPECT_TRUE(run.status == 0 || run.status < 0 || run.status == 127 ||
                  run.err.find("ERROR") != run.err.npos || run.out.find("Unable") != run.out.npos ||
                  (run.out + run.err).find('-') == run.out.npos)
          << limit << run;
      reached = reached || (run.status != 0 && run.err.find(row.reached) != run.err.npos);
      worked += run.status == 0 ? 1 : 0;
      scene.removeCopies();
    }
    EXPECT_TRUE(reached) << row.reached;
  }
}

}  // namespace
}  // namespace tamrix
