// The question before an existing destination is overwritten.
#include <csignal>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

// Sources a, b, c, new, in this order; all but the last exist at the destination.
class Prompt : public testing::Test {
 protected:
  std::vector<std::string> interactiveBatch() const {
    CopyScene::Pairs pairs;
    for (const std::string name : {"a", "b", "c", "new"}) {
      pairs.emplace_back(scene_.addSource(name), scene_.destination(name));
      if (name != "new") scene_.addDestination(name);
    }
    return scene_.batch(pairs, "<interactive>enable</interactive>");
  }
  std::string question(char name) const {
    return text(msg::kCopyListOverwrite, scene_.destination(std::string(1, name)));
  }
  // The names whose destinations have the new content.
  std::string overwritten() const {
    std::string names;
    for (const auto& [name, content] : scene_.copied())
      if (content == "new") names += name + " ";
    return names;
  }

  const CopyScene scene_;
};

TEST_F(Prompt, answersDecideFileByFile) {
  struct Row {
    std::string input;
    std::string overwritten;
    std::string asked;
  };
  const std::string longLine(100000, 'x');
  for (const Row& row :
       std::vector<Row>{{"Y\nn\nyes please\n", "a c new ", "abc"},
                        {"n\na\n", "b c new ", "ab"},
                        {"A\nn\nn\n", "a new ", "abc"},  // Kept: only the small a answers for all
                        {"\n \t\nn\nn\ny\n", "c new ", "aaabc"},
                        {"", "new ", "abc"},
                        {"n\nn\ny", "c new ", "abc"},
                        {longLine + "\nn\n" + std::string(100000, ' ') + "n\n", "a new ", "abc"}}) {
    scene_.removeCopies();
    const ProgramRun run = runProgram(interactiveBatch(), {.input = row.input});
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(overwritten(), row.overwritten) << row.input.substr(0, 20) << run;
    std::string asked;
    for (const char name : row.asked) asked += question(name);
    EXPECT_NE(run.out.find("\n" + asked), std::string::npos) << run;
    EXPECT_EQ(run.out.find("'new'"), std::string::npos) << run;
  }
}

TEST_F(Prompt, aSignalEndsTheWaitForAnAnswerAndNothingIsCopied) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    RunningProgram program(interactiveBatch());
    EXPECT_TRUE(program.waitForText(question('a')));
    program.send("y\n");
    EXPECT_TRUE(program.waitForText(question('b')));
    program.signal(number);
    const ProgramRun& run = program.wait();
    EXPECT_EQ(run.status, 128 + number) << run;
    EXPECT_EQ(run.count(text(msg::kMainInterrupted, number)), 1) << run;
    EXPECT_EQ(run.count(text(msg::kMainEnded, 128 + number)), 1) << run;
    EXPECT_EQ(overwritten(), "") << run;
  }
}

}  // namespace
}  // namespace tamrix
