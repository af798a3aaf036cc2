// The question before an existing destination is overwritten.
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "log/message_ids.h"
#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

using test::CopyScene;
using test::ProgramOptions;
using test::ProgramRun;
using test::RunningProgram;
using test::text;

// Sources a, b, c, new, in this order; all but the last exist at the destination.
std::vector<std::string> interactiveBatch(const CopyScene& scene) {
  CopyScene::Pairs pairs;
  for (const char* name : {"a", "b", "c"}) {
    scene.addDestination(name);
    pairs.emplace_back(scene.addSource(name), scene.destination(name));
  }
  pairs.emplace_back(scene.addSource("new"), scene.destination("new"));
  return scene.batch(pairs, "<interactive>enable</interactive>");
}

std::string question(const CopyScene& scene, const char* name) {
  return text(msg::kListOverwrite, scene.destination(name));
}

// The names whose destinations have the new content.
std::string overwritten(const CopyScene& scene) {
  std::string names;
  for (const auto& [name, content] : scene.copied()) {
    if (content == "new") names += name + " ";
  }
  return names;
}

TEST(Prompt, answersDecideFileByFile) {
  struct Row {
    std::string input;
    std::string overwritten;
    std::string asked;
  };
  const std::string longLine(100000, 'x');
  const std::vector<Row> rows = {
      {"y\nn\ny\n", "a c new ", "abc"},
      {"Y\nN\nyes please\n", "a c new ", "abc"},
      {"n\na\n", "b c new ", "ab"},
      {"A\nn\nn\n", "a new ", "abc"},  // Kept: only the small a answers for all
      {"\n \t\nn\nn\ny\n", "c new ", "aaabc"},
      {"", "new ", "abc"},
      {"y\n", "a new ", "abc"},
      {"n\nn\ny", "c new ", "abc"},
      {longLine + "\nn\n" + longLine + "n\n", "a c new ", "abc"},
      {std::string(100000, ' ') + "n\n0\nn\n", "b new ", "abc"},
  };
  for (const Row& row : rows) {
    const CopyScene scene;
    const ProgramRun run = test::runProgram(interactiveBatch(scene), {.input = row.input});
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(overwritten(scene), row.overwritten) << row.input.substr(0, 20) << run;
    std::string asked;
    for (const char name : row.asked) asked += question(scene, std::string(1, name).c_str());
    EXPECT_NE(run.out.find("\n" + asked), std::string::npos) << run;
    EXPECT_EQ(run.out.find("'new'"), std::string::npos) << run;
  }
}

TEST(Prompt, noToAllIsAWarning) {
  const CopyScene scene;
  scene.addSource("a");
  scene.addDestination("a");
  for (const bool closed : {false, true}) {
    ProgramOptions options{.input = "n\n"};
    if (closed) options.descriptors = {{0, -1}};
    const ProgramRun run = scene.copy({"-interactive"}, options);
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(run.count(text(msg::kListNoSourceFiles)), 1) << run;
    EXPECT_EQ(overwritten(scene), "");
  }
}

TEST(Prompt, nobodyIsAskedUnlessInteractive) {
  const CopyScene scene;
  std::vector<std::string> args = interactiveBatch(scene);
  args.push_back("-interactive=disable");
  const ProgramRun run = test::runProgram(args, {.input = "n\nn\nn\n"});
  EXPECT_EQ(overwritten(scene), "a b c new ") << run;
  EXPECT_EQ(run.out.find("Overwrite"), std::string::npos) << run;
}

TEST(Prompt, aTerminalIsAskedBeforeItAnswers) {
  const CopyScene scene;
  RunningProgram program(interactiveBatch(scene), {.onTerminal = true});
  EXPECT_TRUE(program.waitForText(question(scene, "a")));
  program.send("n\n");
  EXPECT_TRUE(program.waitForText(question(scene, "b")));
  program.send("\n");
  program.send("y\n");
  EXPECT_TRUE(program.waitForText(question(scene, "c")));
  program.send("\x04");  // end of input
  EXPECT_EQ(program.wait().status, 0) << program.wait();
  EXPECT_EQ(overwritten(scene), "b new ");
}

TEST(Prompt, aSignalEndsTheWaitForAnAnswerAndNothingIsCopied) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    const CopyScene scene;
    RunningProgram program(interactiveBatch(scene));
    EXPECT_TRUE(program.waitForText(question(scene, "a")));
    program.send("y\n");
    EXPECT_TRUE(program.waitForText(question(scene, "b")));
    program.signal(number);
    const ProgramRun& run = program.wait();
    EXPECT_EQ(run.status, 128 + number) << run;
    EXPECT_EQ(run.count(text(msg::kMainInterrupted, number)), 1) << run;
    EXPECT_EQ(run.count(text(msg::kMainEnded, 128 + number)), 1) << run;
    EXPECT_EQ(overwritten(scene), "") << run;
  }
}

TEST(Prompt, theKeyThatInterruptsEndsItOnATerminal) {
  const CopyScene scene;
  RunningProgram program(interactiveBatch(scene), {.onTerminal = true});
  EXPECT_TRUE(program.waitForText(question(scene, "a")));
  program.send("\x03");
  EXPECT_EQ(program.wait().status, 128 + SIGINT) << program.wait();
  EXPECT_EQ(overwritten(scene), "");
}

}  // namespace
}  // namespace tamrix
