// Which files of a directory are copied, and that a file is never copied onto itself.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

TEST(Listing, patternAndRecursionSelectTheFiles) {
  const CopyScene scene;
  for (const char* name : {"a.dat", "b.txt", ".hidden", "x.dat/in.dat", "x.dat/deep/er.dat", "x.dat/t.txt"})
    scene.addSource(name);
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
      {{}, ".hidden a.dat b.txt "},
      {{"-srcspec=x.dat"}, ""},
      {{"-srcspec=?.dat"}, "a.dat "},
      {{"-srcpath=" + scene.source("x.dat//"), "-recursive"}, "deep deep/er.dat in.dat t.txt "},
      {{"-srcspec=*.dat", "-recursive"}, "a.dat x.dat x.dat/deep x.dat/deep/er.dat x.dat/in.dat "}};
  for (const auto& [options, expected] : rows) {
    const ProgramRun run = scene.copy(options);
    EXPECT_EQ(run.status, 0) << run;
    std::string names;
    for (const auto& [name, content] : scene.copied()) names += name + " ";
    EXPECT_EQ(names, expected) << run;
    scene.removeCopies();
  }
}

TEST(Listing, wildcardsOfABatchFileAreLookedForInTheLastComponentOfAPatternOnly) {
  const CopyScene scene;
  scene.addSource("What now?/f", "right");
  scene.addSource("What now2/f", "wrong");
  const std::string in = "</srcpath><dstpath>" + scene.destination("") + "</dstpath>";
  const std::vector<std::pair<std::string, Contents>> rows = {
      {"What now?" + in + "<sf rename='f-2024'>f</sf>", {{"f-2024", "right"}}},
      {"What now?" + in + "<srcspec>f</srcspec>", {{"f", "right"}}},
      {"What now?" + in + "<srcspec>*</srcspec>", {{"f", "right"}}},
      {in + "<srcspec>W*/f</srcspec>", {}},
      {in + "<srcspec>What now?/?</srcspec>", {{"What now?", "<dir>"}, {"What now?/f", "right"}}}};
  for (const auto& [file, made] : rows) {
    const std::string xml = "<tamrixspec version='1.0'><data><file><srcpath>" + scene.source(file) +
                            "</file></data></tamrixspec>";
    const ProgramRun run =
        runProgram({"-ignore-vendor-check", "-batchfile=" + scene.dir().file("batch.xml", xml)});
    EXPECT_EQ(scene.copied(), made) << file << run;
    scene.removeCopies();
  }
}

TEST(Listing, linksAreFollowedWhatIsNoFileIsLeftOutAndWhatCannotBeExaminedTold) {
  const CopyScene scene;
  const std::string target = scene.dir().file("elsewhere/file", "linked");
  for (const char* name : {"a/file", "locked/b", "unsearched/c", "unsearched/d"}) scene.addSource(name);
  for (const auto& [to, link] : std::map<std::string, std::string>{{target, "link"},
                                                                   {scene.dir() / "elsewhere", "linked dir"},
                                                                   {"nowhere", "dangling"},
                                                                   {"itself", "itself"},
                                                                   {"..", "a/loop"}})
    std::filesystem::create_symlink(to, scene.source(link));
  ASSERT_EQ(mkfifo(scene.source("fifo").c_str(), 0600), 0);
  chmod(scene.source("locked").c_str(), 0);
  chmod(scene.source("unsearched").c_str(), 0400);
  const ProgramRun run = scene.copy({"-recursive"});
  for (const char* name : {"locked", "unsearched"}) chmod(scene.source(name).c_str(), 0700);
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_EQ(scene.copied(), (Contents{{"a", "<dir>"},
                                      {"a/file", "new"},
                                      {"link", "linked"},
                                      {"linked dir", "<dir>"},
                                      {"linked dir/file", "linked"}}));
  EXPECT_EQ(run.count(text(msg::kFileListerDirectoryLoop, scene.source("a/loop"))), 1) << run;
  for (const auto& [name, error] :
       std::map<std::string, int>{{"itself", ELOOP}, {"locked", EACCES}, {"unsearched", EACCES}})
    EXPECT_EQ(run.count(text(msg::kFileListerCannotOpen, scene.source(name), strerror(error))), 1) << run;
  EXPECT_EQ(run.linesAfter("FRM:getList - ERROR"), std::vector<std::string>{}) << run;
  for (const char* silent : {"dangling", "fifo"})
    EXPECT_EQ((run.out + run.err).find(silent), std::string::npos) << run;
}

TEST(Listing, theVendorIsLookedForOnBothSidesUpToTheNearestExistingDirectory) {
  struct Row {
    const char* sourceVendor;
    const char* targetVendor;
    bool passes;
  };
  for (const Row& row :
       {Row{"", "", false}, {"VOQ LTFS 2.4", "", true}, {"", "VOQ", true}, {"XVOQ", "VO", false}}) {
    const CopyScene scene;
    test::setXattr(scene.addSource("a"), "user.ltfs.softwareVendor", row.sourceVendor);
    test::setXattr(scene.destination(""), "user.ltfs.softwareVendor", row.targetVendor);
    const ProgramRun run =
        scene.copy({"-ignore-vendor-check=disable", "-dstpath=" + scene.destination("new/deeper")});
    EXPECT_EQ(run.status, row.passes ? 0 : 1) << run;
    EXPECT_EQ(run.count(text(msg::kMainNoLtfsSide)), row.passes ? 0 : 1) << run;
    EXPECT_EQ(test::readFile(scene.destination("new/deeper/a")), row.passes ? "new" : "") << run;
  }
}

TEST(SameFile, isNeitherOpenedNorCutAndTheOthersAreCopied) {
  const CopyScene scene;
  const std::string a = scene.addSource("a", "precious");
  const std::string b = scene.addSource("b");
  std::filesystem::create_symlink(a, scene.destination("link"));
  std::filesystem::create_hard_link(a, scene.destination("hard"));
  std::filesystem::create_symlink(scene.source(""), scene.destination("dir"));
  std::filesystem::create_symlink("missing/../link", scene.destination("dangling"));
  const std::string root = scene.dir().path();
  for (const std::string& own :
       {a, root + "//source/./a", root + "/target/../source/a", scene.destination("link"),
        scene.destination("hard"), scene.destination("dir/a"), scene.destination("new/../link"),
        scene.destination("new/./er/../../../source/a"), scene.destination("dangling")}) {
    const ProgramRun run = scene.copyBatch({{a, own}, {b, scene.destination("b")}});
    EXPECT_EQ(run.status, 1) << own << run;
    EXPECT_EQ(run.count(text(msg::kCopyListSameFile, a, own)), 1) << run;
    EXPECT_EQ(test::readFile(a), "precious") << own;
    EXPECT_EQ(run.linesAfter("Copy "), std::vector<std::string>{b + " to " + scene.destination("b")}) << run;
  }
  EXPECT_EQ(scene.copy({"-dstpath=" + root + "/target/../source"}).status, 1);
  EXPECT_EQ(test::readFile(a), "precious");
}

TEST(SameFile, asBothEndsOfDifferentPairsEndsTheRunBeforeAByteIsWritten) {
  const CopyScene scene;
  const std::string a = scene.addSource("a", "content of a");
  const std::string b = scene.addSource("b", "content of b");
  const std::string x = scene.addDestination("x");
  const std::string y = scene.destination("y");
  const std::string z = scene.destination("z");
  const std::string hard = scene.destination("hard");
  const std::string linkX = scene.destination("link");
  const std::string deepY = scene.destination("missing/y");
  std::filesystem::create_hard_link(b, hard);
  std::filesystem::create_symlink(x, linkX);
  std::filesystem::create_symlink("y", scene.destination("dangling"));
  std::filesystem::create_symlink(scene.destination("dangling"), scene.destination("dangling again"));
  std::filesystem::create_symlink("../target/missing", scene.source("dangling dir"));
  std::filesystem::create_symlink(scene.destination(""), scene.source("dir"));
  const auto chain = [](auto&... names) { return text(msg::kCopyListConflictChain, names...); };
  const auto same = [&](const std::string& to) {
    return text(msg::kCopyListConflictSameDestination, a, b, to);
  };
  std::vector<std::pair<CopyScene::Pairs, std::string>> rows = {
      {{{a, x}, {x, y}}, chain(a, x, y)},
      {{{x, y}, {a, x}}, chain(a, x, y)},
      {{{a, b}, {b, a}}, chain(a, b, a)},
      {{{b, y}, {a, hard}}, chain(a, hard, y)},
      {{{a, hard}, {b, y}}, chain(a, b, y)},
      {{{a, x}, {b, linkX}}, same(linkX)},
      {{{a, scene.destination("dangling again")}, {b, y}}, same(y)},
      {{{a, deepY}, {b, scene.source("dangling dir/y")}}, same(scene.source("dangling dir/y"))},
      {{{a, y}, {y, z}}, chain(a, y, z)},           // a missing source that an earlier pair makes
      {{{a, y}, {b, x}, {x, a}}, chain(x, a, y)}};  // the first of two clashes
  for (const std::string& other :
       {y, scene.dir().path() + "//target/./y", scene.source("dir/y"), scene.destination("missing/../y")})
    rows.push_back({{{a, y}, {b, other}}, same(other)});
  // A long list is probed ahead by another thread; the clash is with pairs far before.
  CopyScene::Pairs others;
  for (int i = 0; i < 3000; ++i) {
    const std::string name = "other" + std::to_string(i);
    others.emplace_back(scene.addSource(name), scene.destination(name));
  }
  const Contents before = scene.copied();
  for (const bool isLong : {false, true}) {
    for (const auto& [clashing, message] : rows) {
      CopyScene::Pairs pairs = clashing;
      if (isLong) pairs.insert(pairs.begin() + 1, others.begin(), others.end());
      const ProgramRun run = scene.copyBatch(pairs);
      EXPECT_EQ(run.status, 1) << run;
      EXPECT_EQ(run.count(message), 1) << message << run;
      EXPECT_EQ(scene.copied(), before) << run;
      EXPECT_EQ(test::readFile(a) + test::readFile(b), "content of acontent of b");
    }
  }
}

TEST(SameFile, aPairGivenTwiceIsCopiedOnceWithAWarning) {
  const CopyScene scene;
  const std::string a = scene.addSource("a");
  const std::string x = scene.destination("x");
  const std::string spelled = scene.dir().path() + "//target/./x";
  const ProgramRun run = scene.copyBatch({{a, x}, {a, x}, {a, spelled}, {a, scene.destination("y")}});
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.count(text(msg::kCopyListDuplicate, a, x)), 1) << run;
  EXPECT_EQ(run.count(text(msg::kCopyListDuplicate, a, spelled)), 1) << run;
  EXPECT_EQ(run.count(text(msg::kWriterModuleFilesCopied, 2)), 1) << run;
}

}  // namespace
}  // namespace tamrix
