// What the program writes where, its exit status, and the precedence of its options.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <regex>
#include <thread>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

const std::string kStartLine = text(msg::kMainStart, "1.1.1.1", "1000") + "\n";

TEST(Output, helpAndVersionEndWithStatus1AndCopyNothing) {
  const CopyScene scene;
  scene.addSource("a");
  const std::string usage = kStartLine + text(msg::kUsage00) + "\n";
  for (const std::vector<std::string>& args :
       {{}, scene.args({"-help", "-nosuch"}), scene.args({"-", "-nosuch"})}) {
    const ProgramRun run = runProgram(args);
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_TRUE(run.out.starts_with(usage) && run.out.ends_with(text(msg::kUsage50) + "\n")) << run;
    EXPECT_EQ(run.err, "");
  }
  const ProgramRun run = scene.copy({"-Versions=2", "-help"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out, kStartLine + text(msg::kMainVersion, "1.1.1.1", "1000") + "\n") << run;
  EXPECT_TRUE(scene.copied().empty());
}

TEST(Output, levelDecidesWhichLinesAppearAndTheEndLineAlwaysDoes) {
  const CopyScene scene;
  const std::string path = scene.addSource("a");
  const std::vector<std::string> lines = {
      text(msg::kManagerRun), text(msg::kFileWriterStatusSuccess, path, scene.destination("a")),
      text(msg::kFileWriterCopy, path, scene.destination("a")), text(msg::kCopyListNoPosition, "a")};
  const std::string ended = text(msg::kMainEnded, 0);
  std::size_t level = 0;
  for (const std::string name : {"DEBUG", "PROGRESS", "INFO", "WARNING", "URGENT"}) {
    const ProgramRun run = scene.copy({"-loglevel=" + name});
    EXPECT_EQ(run.status, 0) << run;
    for (std::size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(run.count(lines[i]), level <= i ? 1 : 0) << run;
    EXPECT_EQ(run.count(ended), 1) << run;
    EXPECT_EQ(run.out, level < 3 ? kStartLine : kStartLine + ended + "\n") << run;
    EXPECT_EQ(run.err.empty(), level == 4) << run;
    ++level;
  }
}

TEST(Output, timerPutsTheSecondsBeforeEveryLogLineInALocaleOfNoUse) {
  const CopyScene scene;
  scene.addSource("a");
  for (const std::string& locale : {std::string("xx_YY"), "de_DE@x=" + std::string(300, 'a')}) {
    const ProgramRun run = scene.copy({"-timer"}, {.environment = {{"LC_ALL", locale}}});
    EXPECT_EQ(run.out, kStartLine);
    const std::regex stamped("(( {4}\\d|   \\d\\d|  \\d{3})\\.\\d{6} .*\n)+");
    EXPECT_TRUE(std::regex_match(run.err, stamped)) << run;
  }
}

TEST(Output, commandLineOutranksTheBatchFileAndThatTheDefaults) {
  const CopyScene scene;
  scene.addSource("a");
  scene.addSource("below/b");
  const std::string other = scene.dir().file("other", "from the batch");
  const std::vector<std::string> batch =
      scene.batch({{other, scene.destination("1")}, {other, scene.destination("2")}},
                  "<recursive>enable</recursive><loglevel>WARNING</loglevel>");
  const Contents flat = {{"a", "new"}, {"1", "from the batch"}, {"2", "from the batch"}};
  Contents deep = flat;
  deep.insert({{"below", "<dir>"}, {"below/b", "new"}});
  const std::vector<std::pair<std::vector<std::string>, Contents>> rows = {
      {{}, deep},
      {{"-recursive=disable"}, flat},
      {{"-recursive=disable", "-LogLevel=INFO", "-recursive"}, deep}};
  for (const auto& [more, copied] : rows) {
    std::vector<std::string> args = scene.args(batch);
    args.insert(args.end(), more.begin(), more.end());
    const ProgramRun run = runProgram(args);
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(scene.copied(), copied) << run;
    EXPECT_EQ(run.linesAfter("Copy ").empty(), more.size() < 3) << run;
    scene.removeCopies();
  }
}

TEST(Output, streamsThatTakeNothingStopAndSpoilNothing) {
  const CopyScene scene;
  Contents sources;
  for (int i = 0; i < 30; ++i) sources["f" + std::to_string(i)] = std::string(200000, 'x');
  for (const auto& [name, content] : sources) scene.addSource(name, content);
  std::array<int, 2> closedPipe{};
  ASSERT_EQ(pipe2(closedPipe.data(), O_CLOEXEC), 0);
  close(closedPipe[0]);
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  const int none = closedPipe[1];
  for (const std::map<int, int>& replaced : std::vector<std::map<int, int>>{
           {{0, -1}, {1, -1}, {2, -1}}, {{1, full}, {2, full}}, {{1, none}}, {{2, none}}}) {
    const ProgramRun run = scene.copy({"-loglevel=DEBUG"}, {.descriptors = replaced});
    EXPECT_EQ(run.status, 0) << testing::PrintToString(replaced) << run;
    EXPECT_TRUE(scene.copied() == sources) << testing::PrintToString(replaced);
    scene.removeCopies();
  }
  for (const int fd : {full, none}) close(fd);
}

TEST(Output, aFullNonBlockingPipeIsWaitedFor) {
  const CopyScene scene;
  for (int i = 0; i < 30; ++i) scene.addSource("f" + std::to_string(i));
  std::array<int, 2> pipe{};
  ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
  ASSERT_EQ(fcntl(pipe[1], F_SETFL, O_NONBLOCK), 0);
  RunningProgram program(scene.args({"-loglevel=DEBUG"}), {.descriptors = {{2, pipe[1]}}});
  pollfd room = {pipe[1], POLLOUT, 0};
  while (poll(&room, 1, 0) == 1) std::this_thread::yield();
  close(pipe[1]);
  std::string shown;
  std::array<char, 4096> piece{};
  for (ssize_t n = 0; (n = read(pipe[0], piece.data(), piece.size())) > 0;)
    shown.append(piece.data(), static_cast<std::size_t>(n));
  close(pipe[0]);
  EXPECT_EQ(program.wait().status, 0);
  std::size_t found = 0;
  for (const auto& [name, content] : scene.copied())
    found += shown.find(text(msg::kFileWriterStatusSuccess, scene.source(name), scene.destination(name))) !=
                     shown.npos
                 ? 1U
                 : 0U;
  EXPECT_EQ(found, 30U);
  EXPECT_TRUE(shown.ends_with(text(msg::kLoggerDestructor) + "\n")) << shown.substr(shown.size() - 200);
}

}  // namespace
}  // namespace tamrix
