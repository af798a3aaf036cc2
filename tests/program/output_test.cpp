// What the program writes where, its exit status, and the precedence of its options.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "log/message_ids.h"
#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

using test::CopyScene;
using test::ProgramRun;
using test::text;

const std::string kStartLine = text(msg::kMainStart, "1.1.1.1", "1000") + "\n";

TEST(Output, helpAndVersionEndWithStatus1AndCopyNothing) {
  CopyScene scene;
  scene.addSource("a");
  const std::string version = text(msg::kMainVersion, "1.1.1.1", "1000") + "\n";
  const std::string usageStart = text(msg::kUsage00) + "\n";
  const std::string usageEnd = text(msg::kUsage50) + "\n";
  for (const std::string option : {"-help", "-h", "-", "HELP", "-helpful=1"}) {
    const ProgramRun run = scene.copy({option, "-nosuch"});
    EXPECT_EQ(run.status, 1) << option;
    EXPECT_TRUE(run.out.starts_with(kStartLine + usageStart) && run.out.ends_with(usageEnd)) << option << run;
    EXPECT_EQ(run.err, "") << option;
  }
  for (const std::string option : {"-version", "-v", "-Versions=2"}) {
    const ProgramRun run = scene.copy({option, "-help"});
    EXPECT_EQ(run.status, 1) << option;
    EXPECT_EQ(run.out, kStartLine + version) << option << run;
  }
  const ProgramRun nothing = test::runProgram({});
  EXPECT_EQ(nothing.status, 1);
  EXPECT_TRUE(nothing.out.starts_with(kStartLine + usageStart)) << nothing;
  EXPECT_TRUE(scene.copied().empty());
}

TEST(Output, levelDecidesWhichLinesAppearAndTheEndLineAlwaysDoes) {
  CopyScene scene;
  const std::string path = scene.addSource("a");
  const std::string copy = text(msg::kWriteCopy, path, scene.destination("a"));
  const std::string success = text(msg::kStatusSuccess, path, scene.destination("a"));
  const std::string noPosition = text(msg::kListNoPosition, "a");
  const std::string ended = text(msg::kMainEnded, 0);
  const std::vector<std::string> levels = {"DEBUG", "PROGRESS", "INFO", "WARNING", "URGENT"};
  for (int i = 0; i < 5; ++i) {
    const ProgramRun run = scene.copy({"-loglevel=" + levels.at(static_cast<std::size_t>(i))});
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(run.count(text(msg::kMomRun)), i < 1 ? 1 : 0) << run;
    EXPECT_EQ(run.count(success), i < 2 ? 1 : 0) << run;
    EXPECT_EQ(run.count(copy), i < 3 ? 1 : 0) << run;
    EXPECT_EQ(run.count(noPosition), i < 4 ? 1 : 0) << run;
    EXPECT_EQ(run.count(ended), 1) << run;
    EXPECT_EQ(run.out, i < 3 ? kStartLine : kStartLine + ended + "\n") << run;
    EXPECT_EQ(run.err.empty(), i == 4) << run;
  }
}

TEST(Output, timerPutsTheSecondsBeforeEveryLogLine) {
  CopyScene scene;
  scene.addSource("a");
  const ProgramRun run = scene.copy({"-timer", "-loglevel=DEBUG"});
  EXPECT_EQ(run.out, kStartLine);
  // Lines before the option is known have no time; from the second look at it on, all have.
  const std::size_t start = run.err.find("Prop:parseFile");
  ASSERT_NE(start, std::string::npos);
  const std::regex stamped("( {4}\\d|   \\d\\d|  \\d{3})\\.\\d{6} .*");
  int lines = 0;
  for (std::size_t at = run.err.find('\n', start) + 1; at < run.err.size(); ++lines) {
    const std::size_t end = run.err.find('\n', at);
    EXPECT_TRUE(std::regex_match(run.err.substr(at, end - at), stamped)) << run.err.substr(at, end - at);
    at = end + 1;
  }
  EXPECT_GT(lines, 50);
}

TEST(Output, commandLineOutranksTheBatchFileAndThatTheDefaults) {
  CopyScene scene;
  scene.addSource("a");
  scene.addSource("below/b");
  const std::string pattern = scene.source("*");
  const CopyScene::Pairs pairs = {{pattern, scene.destination("x")}};
  const std::string params = "<recursive>enable</recursive><loglevel>WARNING</loglevel>";
  struct Row {
    std::vector<std::string> more;
    std::size_t entries;  // below is an entry, b another
    bool infoShown;
  };
  const std::vector<Row> rows = {{{}, 3, false},
                                 {{"-recursive=disable"}, 1, false},
                                 {{"-loglevel=INFO"}, 3, true},
                                 {{"-LogLevel=INFO", "-recursive=disable", "-recursive"}, 3, true}};
  for (const Row& row : rows) {
    std::vector<std::string> args = scene.batch(pairs, params);
    args.insert(args.end(), row.more.begin(), row.more.end());
    const ProgramRun run = test::runProgram(args);
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(scene.copied().size(), row.entries) << run;
    EXPECT_EQ(run.linesAfter("Copy ").empty(), !row.infoShown) << run;
    std::filesystem::remove_all(scene.destination(""));
    std::filesystem::create_directory(scene.destination(""));
  }
}

TEST(Output, pathsAreMadeAbsoluteAndTheDashIsOptional) {
  CopyScene scene;
  scene.addSource("a");
  const std::string home = scene.dir().path();
  int number = 0;
  for (const std::string source : {"source", "./source", "~/source", "source/"}) {
    const std::string target = std::to_string(++number);
    const ProgramRun run = test::runProgram(
        {"srcpath=" + source, "-SrcSpec=*", "dstpath=target/" + target, "-ignore-vendor-check"},
        {.workingDirectory = home, .environment = {{"HOME", home}}});
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(test::readFile(scene.destination(target + "/a")), "new") << run;
  }
}

TEST(Output, streamsThatTakeNothingStopAndSpoilNothing) {
  CopyScene scene;
  for (int i = 0; i < 30; ++i) scene.addSource("f" + std::to_string(i), std::string(200000, 'x'));
  std::array<int, 2> closedPipe{};
  ASSERT_EQ(pipe2(closedPipe.data(), O_CLOEXEC), 0);
  close(closedPipe[0]);
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  const std::vector<std::map<int, int>> replacements = {{{1, -1}},
                                                        {{2, -1}},
                                                        {{0, -1}, {1, -1}, {2, -1}},
                                                        {{1, full}},
                                                        {{2, full}},
                                                        {{1, full}, {2, full}},
                                                        {{1, closedPipe[1]}},
                                                        {{2, closedPipe[1]}}};
  for (const std::map<int, int>& replaced : replacements) {
    const ProgramRun run = scene.copy({"-loglevel=DEBUG"}, {.descriptors = replaced});
    EXPECT_EQ(run.status, 0) << testing::PrintToString(replaced) << run;
    const auto copied = scene.copied();
    EXPECT_EQ(copied.size(), 30U);
    for (const auto& [name, content] : copied) {
      EXPECT_TRUE(content == std::string(200000, 'x')) << name << content.substr(0, 200);
    }
    std::filesystem::remove_all(scene.destination(""));
  }
  close(full);
  close(closedPipe[1]);
}

}  // namespace
}  // namespace tamrix
