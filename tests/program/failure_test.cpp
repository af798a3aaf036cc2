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

TEST(Failure, destinationsThatCannotBeMadeEndTheRunAndStayAsTheyAre) {
  const CopyScene scene;
  const std::string a = scene.addSource("a");
  for (const char* name : {"dir", "locked"}) std::filesystem::create_directory(scene.destination(name));
  chmod(scene.destination("locked").c_str(), 0500);
  const std::string read = scene.destination("read");
  for (const char* name : {"fifo", "read"}) ASSERT_EQ(mkfifo(scene.destination(name).c_str(), 0600), 0);
  const int reader = open(read.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const std::string file = scene.addDestination("file");
  const int locker = open(file.c_str(), O_RDWR | O_CLOEXEC);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(fcntl(locker, F_OFD_SETLK, &lock), 0);
  const auto second = [](int error) { return text(msg::kFileWriterSecondCreateFailed, strerror(error)); };
  const auto subdir = [&](const char* to) {
    return text(msg::kFileWriterSubdirFailed, scene.destination(to));
  };
  const Contents before = scene.copied();
  for (const auto& [destination, message] : std::vector<std::pair<std::string, std::string>>{
           {"dir", second(EISDIR)},
           {"file/a", second(ENOTDIR)},
           {"file/sub/a", subdir("file/sub")},
           {"fifo", second(ENXIO)},
           {"read", text(msg::kFileWriterDeleteFailed, read, strerror(EPERM))},
           {"locked/a", second(EACCES)},
           {"locked/sub/deep/a", subdir("locked/sub")},
           {"file", text(msg::kFileWriterLockFailed, file, strerror(EAGAIN))}}) {
    const ProgramRun run = scene.copyBatch({{a, scene.destination(destination)}});
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(message), 1) << message << run;
    EXPECT_TRUE(message.find(scene.destination("")) != message.npos ||
                run.count(text(msg::kFileWriterFailedFile, scene.destination(destination))) == 1)
        << "not named" << run;
    EXPECT_EQ(scene.copied(), before) << run;
  }
  for (const int fd : {reader, locker}) close(fd);
  chmod(scene.destination("locked").c_str(), 0700);
}

TEST(Copy, aFileThatAnotherProcessHasALeaseOnIsWaitedFor) {
  for (const auto& [side, isStopped] :
       {std::pair("source/a", false), {"target/a", false}, {"source/a", true}, {"target/a", true}}) {
    const CopyScene scene;
    scene.addSource("a");
    scene.addDestination("a");
    const int fd = open((scene.dir() / side).c_str(), O_RDWR | O_CLOEXEC);
    sigset_t asked;
    sigemptyset(&asked);
    sigaddset(&asked, SIGIO);
    pthread_sigmask(SIG_BLOCK, &asked, nullptr);
    if (fcntl(fd, F_SETLEASE, F_WRLCK) != 0) GTEST_SKIP() << "no leases here";
    RunningProgram program(scene.args());
    const timespec patience = {60, 0};
    EXPECT_EQ(sigtimedwait(&asked, nullptr, &patience), SIGIO);  // told that somebody wants the file
    if (isStopped) {
      program.signal(SIGTERM);
      (void)program.wait();
    }
    EXPECT_EQ(fcntl(fd, F_SETLEASE, F_UNLCK), 0) << "waited until the system took it away";
    EXPECT_EQ(program.wait().status, isStopped ? 128 + SIGTERM : 0) << program.wait();
    EXPECT_EQ(scene.copied(), (Contents{{"a", isStopped ? "old" : "new"}})) << side;
    close(fd);
  }
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

const std::vector<std::string> kSlowly = {"-recursive", "-loglevel=DEBUG", "-buffer-size=4KB",
                                          "-total-buffer-size=16KB"};

// The words that a run says at a point, at the level DEBUG, tell when to interrupt it there.
TEST(Interrupt, whereverTheRunIsItEndsWithWholeFilesOrNone) {
  const CopyScene scene;
  for (int i = 0; i < 1500; ++i) scene.addSource("many/" + std::to_string(i), "x");
  const std::string large = scene.addEndlessSource("large");
  // Its second buffer is written.
  const std::string copying = text(msg::kFileWriterPosition, 4096ULL, 4096LL);
  struct Row {
    std::vector<std::string> args;
    std::string words;
    std::string never = "-";  // a line that comes later
  };
  // Waits for an answer.
  const std::string asked = text(msg::kCopyListOverwrite, scene.addDestination("many/0", "x"));
  std::vector<Row> rows = {{scene.args({"-recursive", "-interactive"}), asked}};
  for (const std::string& words : {std::string(),  // as soon as it is started
                                   std::string("FRM:SFLgetNextFile - Next file"), copying,
                                   text(msg::kRingStarved, 0), text(msg::kRingStarved, 1)})
    rows.push_back({scene.args(kSlowly), words});
  // Each of the passes over a long batch file.
  const std::string last = "20000";
  std::string xml = "<tamrixspec version='1.0'><data><file><srcpath>/s</srcpath><dstpath>/d</dstpath>";
  for (int i = 0; i <= std::stoi(last); ++i) xml += "<sf>" + std::to_string(i) + "</sf>";
  const std::string batch = scene.dir().file("batch.xml", xml + "</file></data></tamrixspec>");
  const auto addPass = [&](const std::string& first, const std::string& never) {
    rows.push_back({{"-batchfile=" + batch, "-loglevel=DEBUG"}, first + "\n", never});
  };
  for (const auto id : {msg::kBatchParamText, msg::kBatchTextSf}) addPass(text(id, "0"), text(id, last));
  for (const auto id : {msg::kBatchPair, msg::kBatchFileListerPair, msg::kBatchFileListerNextPair})
    addPass(text(id, "/s/0", "/d/0"), text(id, "/s/" + last, "/d/" + last));
  for (const auto& [args, words, never] : rows) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      if (args[0].starts_with("-batchfile") && number != SIGTERM) continue;
      RunningProgram program(args);
      EXPECT_TRUE(words.empty() || program.waitForText(words)) << words;
      program.interrupt(number);
      if (number == SIGHUP) program.signal(number);  // a closing terminal sends two
      const ProgramRun& run = program.wait();
      for (const auto& [name, content] : scene.copied())
        EXPECT_TRUE(content == "<dir>" || content == "x") << name << " is left half, " << words;
      // Before it is ready for signals there is nothing yet to end in good order.
      if (words.empty() && run.status == -number) continue;
      EXPECT_EQ(run.status, 128 + number) << words << run;
      for (const std::string& line : {text(msg::kMainStopping, number), text(msg::kMainInterrupted, number),
                                      text(msg::kMainEnded, 128 + number)})
        EXPECT_EQ(run.count(line), 1) << line << run;
      EXPECT_EQ(run.count(never) + run.count(text(msg::kBatchFileListerFailed)), 0) << words;
      if (words != copying) continue;
      EXPECT_EQ(run.count(text(msg::kFileWriterStatusError, large, scene.destination("large"))), 1) << run;
    }
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
  const CopyScene scene;
  for (const char* name : {"a", "b/c/d", "e"}) scene.addSource(name, std::string(50000, *name));
  // Counts the runs that say `words`, from a limit that lets nothing work to the second that lets all.
  const auto count = [&](__rlimit_resource resource, rlim_t limit, rlim_t step, const char* words) {
    int found = 0;
    for (int worked = 0; worked < 2; limit += step) {
      const ProgramRun run = scene.copy({"-recursive", "-buffer-size=4KB", "-total-buffer-size=64KB"},
                                        {.limits = {{resource, limit}}});
      for (const auto& [name, content] : scene.copied())
        EXPECT_TRUE(content == "<dir>" || content.size() == 50000) << name << " under " << limit << run;
      // Under a low limit on memory the program may not even be loaded.
      EXPECT_TRUE(run.status <= 0 || run.status == 127 || run.err.find("ERROR") != run.err.npos ||
                  run.out.find("Unable") != run.out.npos || (run.out + run.err).find('-') == run.out.npos)
          << limit << run;
      found += run.err.find(words) != run.err.npos ? 1 : 0;
      worked += run.status == 0 ? 1 : 0;
      scene.removeCopies();
    }
    return found;
  };
  EXPECT_GT(count(RLIMIT_NOFILE, 3, 1, "ERROR"), 0);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // their own memory passes every limit
  EXPECT_GT(count(RLIMIT_AS, 8 << 20, 2 << 20, "ERROR Cannot start module"), 0);
#endif
}

}  // namespace
}  // namespace tamrix
