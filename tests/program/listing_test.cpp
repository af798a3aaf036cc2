// Which files of a directory are copied, and that a file is never copied onto itself.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

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
using test::text;

TEST(Listing, patternAndRecursionSelectTheFiles) {
  const CopyScene scene;
  for (const char* name : {"a.dat", "b.txt", ".hidden", "x.dat/in.dat", "x.dat/deep/er.dat", "x.dat/t.txt"}) {
    scene.addSource(name);
  }
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
      {{}, ".hidden a.dat b.txt "},
      {{"-srcspec=*.dat"}, "a.dat "},
      {{"-srcspec=x.dat"}, ""},
      {{"-srcspec=?.dat"}, "a.dat "},
      {{"-srcspec=.*"}, ".hidden "},
      {{"-srcspec=*.dat", "-recursive"}, "a.dat x.dat x.dat/deep x.dat/deep/er.dat x.dat/in.dat "},
      {{"-srcspec=*t*.txt", "-recursive"}, "x.dat x.dat/t.txt "},
  };
  for (const auto& [options, expected] : rows) {
    const ProgramRun run = scene.copy(options);
    EXPECT_EQ(run.status, 0) << run;
    std::string names;
    for (const auto& [name, content] : scene.copied()) names += name + " ";
    EXPECT_EQ(names, expected) << testing::PrintToString(options) << run;
    std::filesystem::remove_all(scene.destination(""));
    std::filesystem::create_directory(scene.destination(""));
  }
}

TEST(Listing, linksAreFollowedAndWhatIsNoFileIsLeftOut) {
  const CopyScene scene;
  const std::string target = scene.dir().file("elsewhere/file", "linked");
  scene.addSource("a/file");
  ASSERT_EQ(symlink(target.c_str(), scene.source("link").c_str()), 0);
  ASSERT_EQ(symlink((scene.dir() / "elsewhere").c_str(), scene.source("linked dir").c_str()), 0);
  ASSERT_EQ(symlink("nowhere", scene.source("dangling").c_str()), 0);
  ASSERT_EQ(symlink("..", scene.source("a/loop").c_str()), 0);
  ASSERT_EQ(mkfifo(scene.source("fifo").c_str(), 0600), 0);
  const ProgramRun run = scene.copy({"-recursive"});
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(scene.copied(), (std::map<std::string, std::string>{{"a", "<dir>"},
                                                                {"a/file", "new"},
                                                                {"link", "linked"},
                                                                {"linked dir", "<dir>"},
                                                                {"linked dir/file", "linked"}}));
  EXPECT_EQ(run.count(text(msg::kListerDirectoryLoop, scene.source("a/loop"))), 1) << run;
  for (const char* silent : {"dangling", "fifo"})
    EXPECT_EQ((run.out + run.err).find(silent), std::string::npos) << run;
}

TEST(Listing, whatCannotBeExaminedIsToldAndTheRestCopied) {
  const CopyScene scene;
  scene.addSource("a");
  scene.addSource("locked/b");
  ASSERT_EQ(symlink("itself", scene.source("itself").c_str()), 0);
  chmod(scene.source("locked").c_str(), 0);
  const ProgramRun run = scene.copy({"-recursive"});
  chmod(scene.source("locked").c_str(), 0700);
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_EQ(run.count(text(msg::kListerCannotOpen, scene.source("itself"), strerror(ELOOP))), 1) << run;
  EXPECT_EQ(run.count(text(msg::kListerCannotOpen, scene.source("locked"), strerror(EACCES))), 1) << run;
  EXPECT_EQ(scene.copied(), (std::map<std::string, std::string>{{"a", "new"}}));
  EXPECT_EQ(run.count(text(msg::kWriterFilesCopied, 1)), 1) << run;
}

TEST(Listing, eitherSideOnAVolumeIsEnough) {
  for (const char* vendor : {"VOQ", "VOQ LTFS 2", "VO", "voq", ""}) {
    const bool accepted = std::string(vendor).starts_with("VOQ");
    for (const bool onSource : {true, false}) {
      const CopyScene scene;
      scene.addSource("a");
      test::setXattr(onSource ? scene.source("a") : scene.destination(""), "user.ltfs.softwareVendor",
                     vendor);
      const ProgramRun run =
          scene.copy({"-ignore-vendor-check=disable", "-dstpath=" + scene.destination("not/made/yet")});
      EXPECT_EQ(run.status, accepted ? 0 : 1) << vendor << run;
      EXPECT_EQ(scene.copied().empty(), !accepted) << vendor;
      EXPECT_EQ(run.count(text(msg::kMainNoLtfsSide)), accepted ? 0 : 1) << run;
    }
  }
}

TEST(SameFile, isNeitherOpenedNorCutAndTheOthersAreCopied) {
  const CopyScene scene;
  const std::string a = scene.addSource("a", "precious");
  const std::string b = scene.addSource("b");
  ASSERT_EQ(symlink(a.c_str(), scene.destination("link").c_str()), 0);
  ASSERT_EQ(link(a.c_str(), scene.destination("hard").c_str()), 0);
  ASSERT_EQ(symlink(scene.source("").c_str(), scene.destination("dir").c_str()), 0);
  const std::string root = scene.dir().path();
  for (const std::string& own :
       {a, root + "//source/./a", root + "/target/../source/a", scene.destination("link"),
        scene.destination("hard"), scene.destination("dir/a")}) {
    const ProgramRun run = scene.copyBatch({{a, own}, {b, scene.destination("b")}});
    EXPECT_EQ(run.status, 1) << own << run;
    EXPECT_EQ(run.count(text(msg::kListSameFile, a, own)), 1) << run;
    EXPECT_EQ(test::readFile(a), "precious") << own;
    EXPECT_EQ(run.linesAfter("Copy "), std::vector<std::string>{b + " to " + scene.destination("b")}) << run;
  }
}

TEST(SameFile, aTreeCopiedOntoItselfStays) {
  const CopyScene scene;
  const std::string a = scene.addSource("a", "precious");
  for (const std::string target : {"source", "./source", "target/../source"}) {
    const ProgramRun run = scene.copy({"-dstpath=" + scene.dir().path() + "/" + target});
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(test::readFile(a), "precious") << target;
  }
}

TEST(SameFile, asBothEndsOfDifferentPairsEndsTheRunBeforeAByteIsWritten) {
  const CopyScene scene;
  const std::string a = scene.addSource("a", "content of a");
  const std::string b = scene.addSource("b", "content of b");
  const std::string x = scene.addDestination("x");
  const std::string hardA = scene.destination("hard a");
  const std::string linkB = scene.destination("link b");
  const std::string linkX = scene.destination("link x");
  ASSERT_EQ(link(a.c_str(), hardA.c_str()), 0);
  ASSERT_EQ(symlink(b.c_str(), linkB.c_str()), 0);
  ASSERT_EQ(symlink(x.c_str(), linkX.c_str()), 0);
  ASSERT_EQ(symlink(scene.destination("").c_str(), scene.source("dir").c_str()), 0);
  const std::string viaDir = scene.source("dir/x");
  const std::string newOne = scene.destination("new");
  const std::string newViaDir = scene.source("dir/new");
  struct Row {
    CopyScene::Pairs pairs;
    std::string message;
  };
  const std::vector<Row> rows = {
      {{{a, x}, {b, hardA}}, text(msg::kListConflictChain, b, hardA, x)},
      {{{b, hardA}, {a, x}}, text(msg::kListConflictChain, b, a, x)},
      {{{a, linkB}, {b, x}}, text(msg::kListConflictChain, a, b, x)},
      {{{a, x}, {b, linkX}}, text(msg::kListConflictSameDestination, a, b, linkX)},
      {{{a, x}, {b, viaDir}}, text(msg::kListConflictSameDestination, a, b, viaDir)},
      {{{a, newOne}, {b, newViaDir}}, text(msg::kListConflictSameDestination, a, b, newViaDir)},
  };
  const auto before = scene.copied();
  for (const Row& row : rows) {
    const ProgramRun run = scene.copyBatch(row.pairs);
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(row.message), 1) << row.message << run;
    EXPECT_EQ(scene.copied(), before) << run;
    EXPECT_EQ(test::readFile(a) + test::readFile(b), "content of acontent of b");
  }
}

TEST(SameFile, aPairGivenTwiceIsCopiedOnceWithAWarning) {
  const CopyScene scene;
  const std::string a = scene.addSource("a");
  const std::string x = scene.destination("x");
  const std::string spelled = scene.dir().path() + "//target/./x";
  const ProgramRun run = scene.copyBatch({{a, x}, {a, x}, {a, spelled}});
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.count(text(msg::kListDuplicate, a, x)), 1) << run;
  EXPECT_EQ(run.count(text(msg::kListDuplicate, a, spelled)), 1) << run;
  EXPECT_EQ(run.count(text(msg::kWriterFilesCopied, 1)), 1) << run;
}

}  // namespace
}  // namespace tamrix
