// The question before an existing destination is overwritten.
#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

// Sources a, b, c, new, in this order; all but the last exist at the destination.
TEST(Prompt, answersDecideFileByFile) {
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
    const CopyScene scene;
    CopyScene::Pairs pairs;
    for (const std::string name : {"a", "b", "c", "new"}) {
      pairs.emplace_back(scene.addSource(name), scene.destination(name));
      if (name != "new") scene.addDestination(name);
    }
    const ProgramRun run =
        runProgram(scene.batch(pairs, "<interactive>enable</interactive>"), {.input = row.input});
    EXPECT_EQ(run.status, 0) << run;
    std::string overwritten;
    for (const auto& [name, content] : scene.copied())
      if (content == "new") overwritten += name + " ";
    EXPECT_EQ(overwritten, row.overwritten) << row.input.substr(0, 20) << run;
    std::string asked;
    for (const char name : row.asked)
      asked += text(msg::kCopyListOverwrite, scene.destination(std::string(1, name)));
    EXPECT_NE(run.out.find("\n" + asked), std::string::npos) << run;
    EXPECT_EQ(run.out.find("'new'"), std::string::npos) << run;
  }
}

}  // namespace
}  // namespace tamrix
