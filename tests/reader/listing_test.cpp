// Listers and copy list on real directories.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "reader/char_special_lister.h"
#include "reader/copy_list.h"
#include "reader/spec_file_lister.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_properties.h"

namespace tamrix {
namespace {

using test::CapturedLog;
using test::TempDir;
using test::TestProperties;

class ListingTest : public testing::Test {
 protected:
  // A batch file with the pairs, each "directory/name".
  std::string batchFile(const std::vector<std::pair<std::string, std::string>>& pairs) {
    std::string text = "<tamrixspec version=\"1.0\"><data>";
    for (const auto& [source, destination] : pairs) {
      const auto cut = [](const std::string& path) {
        const std::size_t slash = path.rfind('/');
        return std::pair(path.substr(0, slash), path.substr(slash + 1));
      };
      text += "<file><srcpath>" + cut(source).first + "</srcpath><dstpath>" + cut(destination).first +
              "</dstpath><sf rename=\"" + cut(destination).second + "\">" + cut(source).second +
              "</sf></file>";
    }
    return dir_.file("batch.xml", text + "</data></tamrixspec>");
  }

  int build(CopyList& list) {
    captured_.clear();
    return list.build();
  }

  // The base names in the order of the list.
  static std::vector<std::string> names(const CopyList& list) {
    std::vector<std::string> found;
    for (const Extent* extent : list.extents()) found.emplace_back(extent->file->fileName);
    return found;
  }

  CapturedLog captured_;
  TempDir dir_;
  TestProperties properties_{{"ignore-vendor-check", "enable"}};
  PipelineGlobals globals_;
};

TEST_F(ListingTest, aPathOf1024CharactersIsAcceptedAndOneOf1025EndsTheRun) {
  for (const std::size_t length : {1024U, 1025U}) {
    std::string directory = dir_.path() + "/long";
    while (directory.size() + 101 < length - 1) directory += "/" + std::string(99, 'd');
    const std::string name(length - directory.size() - 1, 'f');
    dir_.file(directory.substr(dir_.path().size() + 1) + "/" + name);
    properties_.set("srcpath", directory);
    properties_.set("srcspec", name);
    properties_.set("dstpath", "/o");
    SpecFileLister lister(globals_);
    ASSERT_EQ(lister.init(), 0);
    captured_.clear();
    EXPECT_EQ(lister.getNextFile(), length == 1024 ? 0 : -1);
    EXPECT_EQ(captured_.count(msg::kSpecListerPathTooLong, 1026), length == 1024 ? 0 : 1);
    if (length == 1024) {
      EXPECT_EQ(lister.srcFile(), directory + "/" + name);
      EXPECT_EQ(lister.dstFile(), "/o/" + name);
      EXPECT_EQ(lister.getNextFile(), 1);
    }
  }
}

TEST_F(ListingTest, aDestinationOrBatchPathThatIsTooLongEndsTheRunToo) {
  const std::string source = dir_.file("f", "x");
  properties_.set("srcpath", dir_.path());
  properties_.set("srcspec", "f");
  properties_.set("dstpath", "/" + std::string(1023, 'd'));
  CopyList fromSpec(globals_);
  EXPECT_EQ(build(fromSpec), 1);
  EXPECT_EQ(captured_.count(msg::kSpecListerPathTooLong, 1027), 1);

  properties_.set("srcspec", "");
  properties_.set("batchfile", batchFile({{source, "/o/x"}, {"/" + std::string(1024, 's') + "/f", "/o/y"}}));
  CopyList fromBatch(globals_);
  EXPECT_EQ(build(fromBatch), 1);
  EXPECT_EQ(captured_.count(msg::kSpecListerPathTooLong, 1028), 1);
}

TEST_F(ListingTest, trailingSlashesOfTheSourcePathKeepTheRelativeLayout) {
  dir_.file("tree/sub/x.dat");
  for (const char* slashes : {"", "/", "//"}) {
    properties_.set("srcpath", dir_ / "tree" + slashes);
    properties_.set("srcspec", "*.dat");
    properties_.set("recursive", "enable");
    properties_.set("dstpath", "/o");
    SpecFileLister lister(globals_);
    ASSERT_EQ(lister.init(), 0);
    ASSERT_EQ(lister.getNextFile(), 0) << slashes;
    EXPECT_EQ(lister.dstFile(), "/o/sub/x.dat") << slashes;
  }
}

TEST_F(ListingTest, theDeviceListerListsDevicesOnlyAndSkipsUnopenedDirectoriesInSilence) {
  CharSpecialLister lister(globals_);
  PathList found;
  lister.dirInfo(found, "/dev", "null");
  lister.dirInfoRecursive(found, dir_ / "missing", FileLister::kAnyName);
  dir_.file("regular");
  lister.dirInfoRecursive(found, dir_.path(), FileLister::kAnyName);
  EXPECT_EQ(found, PathList{"/dev/null"});
  EXPECT_EQ(captured_.outputText(), "");
}

TEST_F(ListingTest, aStopCutsTheWalkShort) {
  dir_.file("tree/a");
  globals_.stopPipeline();
  FileLister lister(globals_);
  PathList found;
  lister.dirInfoRecursive(found, dir_ / "tree", FileLister::kAnyName);
  EXPECT_TRUE(found.empty());
  CopyList list(globals_);
  properties_.set("srcpath", dir_ / "tree");
  properties_.set("srcspec", "*");
  EXPECT_EQ(build(list), 1);
}

TEST_F(ListingTest, emptyFilesWithoutAPositionGoWithThePositionReadBeforeThem) {
  const std::string first = dir_.tapeFile("first", "1", "u", 'b', 700);
  const std::string empty = dir_.file("empty");
  const std::string second = dir_.tapeFile("second", "2", "u", 'b', 900);
  const std::string plain = dir_.file("plain", "p");
  properties_.set("batchfile",
                  batchFile({{second, "/o/1"}, {first, "/o/2"}, {empty, "/o/3"}, {plain, "/o/4"}}));
  CopyList list(globals_);
  ASSERT_EQ(build(list), 0);
  EXPECT_EQ(names(list), (std::vector<std::string>{"plain", "first", "empty", "second"}));
  EXPECT_EQ(captured_.count(msg::kListNoPosition, "empty"), 1);
  EXPECT_EQ(captured_.count(msg::kListNoPosition, "plain"), 1);
  EXPECT_EQ(list.extents().front()->partition, '?');
  EXPECT_EQ(list.extents().front()->startBlock, 3);
  EXPECT_EQ(list.extents()[2]->startBlock, 700);
  EXPECT_EQ(globals_.totalBytes, 3);
}

TEST_F(ListingTest, oddPositionsCountAsDescribed) {
  const std::string word = dir_.tapeFile("word", "x", std::string(50, 'u'), 'b', 0);
  test::setXattr(word, "user.ltfs.startblock", "abc");
  const std::string bare = dir_.file("bare", "x");
  test::setXattr(bare, "user.ltfs.startblock", "-12 blocks");
  test::setXattr(bare, "user.ltfs.volume_uuid", "other-spelling");
  properties_.set("batchfile", batchFile({{word, "/o/1"}, {bare, "/o/2"}}));
  CopyList list(globals_);
  ASSERT_EQ(build(list), 0);
  const Extent& other = *list.extents()[0];
  EXPECT_STREQ(other.volumeUuid.data(), "other-spelling");
  EXPECT_EQ(other.partition, 0);
  EXPECT_EQ(other.startBlock, -12);
  const Extent& cut = *list.extents()[1];
  EXPECT_EQ(std::string(cut.volumeUuid.data()), std::string(36, 'u'));
  EXPECT_EQ(cut.startBlock, 0);
}

TEST_F(ListingTest, clashesNameTheFirstEarlierPairTheyMeet) {
  const std::string a = dir_.file("a", "a");
  const std::string b = dir_.file("b", "b");
  const std::string c = dir_ / "c";
  const std::string new1 = dir_ / "out/1";
  const std::string alsoNew1 = dir_.path() + "/./out//1";
  symlink(dir_.path().c_str(), (dir_ / "alias").c_str());
  const std::string aliasNew1 = dir_ / "alias/out/1";
  const std::string hardB = dir_ / "hardB";
  ASSERT_EQ(link(b.c_str(), hardB.c_str()), 0);
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  struct Row {
    const char* what;
    Pairs pairs;
    int result;
    std::size_t listed;
    std::string message;
  };
  Logger& log = captured_.logger();
  for (const Row& row : std::vector<Row>{
           {"A to B, B to C", {{a, b}, {b, c}}, 1, 1, log.format(msg::kListConflictChain, a, b, c)},
           {"B to C, A to B", {{b, c}, {a, b}}, 1, 1, log.format(msg::kListConflictChain, a, b, c)},
           {"B to C, A to B by a hard link",
            {{b, c}, {a, hardB}},
            1,
            1,
            log.format(msg::kListConflictChain, a, hardB, c)},
           {"both to C", {{a, c}, {b, c}}, 1, 1, log.format(msg::kListConflictSameDestination, a, b, c)},
           {"both to a new file, by spelling",
            {{a, new1}, {b, alsoNew1}},
            1,
            1,
            log.format(msg::kListConflictSameDestination, a, b, alsoNew1)},
           {"both to a new file, by a linked directory",
            {{a, new1}, {b, aliasNew1}},
            1,
            1,
            log.format(msg::kListConflictSameDestination, a, b, aliasNew1)},
           {"missing source that an earlier pair makes",
            {{a, new1}, {new1, c}},
            1,
            1,
            log.format(msg::kListConflictChain, a, new1, c)},
           {"the same pair twice", {{a, new1}, {a, new1}}, 0, 1, log.format(msg::kListDuplicate, a, new1)},
           {"the same pair, other spelling",
            {{a, new1}, {a, alsoNew1}},
            0,
            1,
            log.format(msg::kListDuplicate, a, alsoNew1)},
           {"one source, two destinations", {{a, new1}, {a, c}}, 0, 2, log.format(msg::kListFilesFound, 2)},
           {"onto itself",
            {{a, dir_ / "alias/a"}, {b, c}},
            0,
            1,
            log.format(msg::kListSameFile, a, dir_ / "alias/a")},
           {"the first of two clashes",
            {{a, new1}, {b, c}, {hardB, a}},
            1,
            2,
            log.format(msg::kListConflictChain, hardB, a, new1)},
       }) {
    properties_.set("batchfile", batchFile(row.pairs));
    CopyList list(globals_);
    EXPECT_EQ(build(list), row.result) << row.what;
    EXPECT_EQ(list.extents().size(), row.listed) << row.what;
    EXPECT_NE(captured_.logText().find(row.message + "\n"), std::string::npos)
        << row.what << ": " << row.message << "\n"
        << captured_.logText();
  }
}

TEST_F(ListingTest, theVendorIsLookedForOnBothSidesAndUpToTheNearestExistingDirectory) {
  struct Row {
    const char* what;
    const char* sourceVendor;
    const char* outVendor;
    bool accepted;
  };
  for (const Row& row : std::vector<Row>{{"none", nullptr, nullptr, false},
                                         {"source", "VOQ LTFS 2.4", nullptr, true},
                                         {"destination", nullptr, "VOQ", true},
                                         {"others'", "XVOQ", "VO", false}}) {
    const TempDir dir;
    const std::string source = dir.file("in/f", "x");
    dir.file("out/keep");
    if (row.sourceVendor != nullptr) test::setXattr(source, "user.ltfs.softwareVendor", row.sourceVendor);
    if (row.outVendor != nullptr) test::setXattr(dir / "out", "user.ltfs.softwareVendor", row.outVendor);
    const TestProperties properties{
        {"srcpath", dir / "in"}, {"srcspec", "*"}, {"dstpath", dir / "out/new/deeper"}};
    CopyList list(globals_);
    EXPECT_EQ(build(list), row.accepted ? 0 : 1) << row.what;
    EXPECT_EQ(captured_.count(msg::kMainNoLtfsSide), row.accepted ? 0 : 1) << row.what;
  }
}

}  // namespace
}  // namespace tamrix
