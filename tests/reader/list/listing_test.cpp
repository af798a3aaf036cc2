// Listers and copy list on real directories.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "reader/list/char_special_lister.h"
#include "reader/list/copy_list.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wide_properties.h"

namespace tamrix {
namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

class ListingTest : public testing::Test {
 protected:
  // Makes a list of the pairs, each "directory/name".
  int build(CopyList& list, const Pairs& pairs) {
    std::string text = "<tamrixspec version=\"1.0\"><data>";
    for (const auto& [source, destination] : pairs) {
      const std::size_t from = source.rfind('/');
      const std::size_t to = destination.rfind('/');
      text += "<file><srcpath>" + source.substr(0, from) + "</srcpath><dstpath>" + destination.substr(0, to) +
              "</dstpath><sf rename=\"" + destination.substr(to + 1) + "\">" + source.substr(from + 1) +
              "</sf></file>";
    }
    dir_.file("batch.xml", text + "</data></tamrixspec>");
    options_.batchfile = dir_ / "batch.xml";
    captured_.clear();
    return list.getList();
  }

  // The options as they are now.
  const RunOptions& options() { return options_ = readRunOptions(*properties); }

  test::CapturedLog captured_;
  test::TempDir dir_;
  test::WideProperties properties_{{{"ignore-vendor-check", "enable"}, {"recursive", "enable"}}};
  PipelineGlobals globals_;
  RunOptions options_;
};

TEST_F(ListingTest, aPathOf1024CharactersIsTakenAndALongerOneEndsTheRun) {
  const std::string source = dir_.file("f", "x");
  for (const std::size_t length : {1024U, 1025U}) {
    const std::string padded = dir_.path() + std::string(length - dir_.path().size() - 1, '/') + "f";
    for (const auto& pair :
         {std::pair(padded, std::string("/o/x")), std::pair(source, "/" + padded.substr(1))}) {
      if (pair.first == source && length == 1024) continue;  // the pair would be a file and itself
      CopyList list(globals_, options());
      EXPECT_EQ(build(list, {pair}), length == 1024 ? 0 : 1);
      EXPECT_EQ(captured_.count(msg::kSpecFileListerPathTooLong, 1026), length == 1024 ? 0 : 1);
    }
  }
}

TEST_F(ListingTest, devicesAreListedInSilenceAndAStopCutsTheWalkShort) {
  dir_.file("regular");
  CharSpecialLister devices(globals_, options());
  PathList found;
  devices.dirInfo(found, "/dev", "null");
  devices.dirInfoRecursive(found, dir_ / "missing", FileLister::kAnyName);
  devices.dirInfoRecursive(found, dir_.path(), FileLister::kAnyName);
  EXPECT_EQ(found, PathList{"/dev/null"});
  EXPECT_EQ(captured_.outputText(), "");
  globals_.stopPipeline();
  FileLister(globals_, options()).dirInfoRecursive(found, dir_.path(), FileLister::kAnyName);
  EXPECT_EQ(found.size(), 1U);
}

TEST_F(ListingTest, positionsAreReadAndEmptyFilesGoWithTheOneBeforeThem) {
  const std::string none = dir_.file("none");
  const std::string word = dir_.tapeFile("word", "1", std::string(50, 'u'), 'b', 0);
  test::setXattr(word, "user.ltfs.startblock", "abc");
  const std::string empty = dir_.file("empty");
  const std::string last = dir_.tapeFile("last", "2", "v", 'b', 900);
  const std::string bare = dir_.file("bare", "x");
  test::setXattr(bare, "user.ltfs.startblock", "-12 blocks");
  test::setXattr(bare, "user.ltfs.volume_uuid", "other-spelling");
  const std::string plain = dir_.file("plain", "p");
  CopyList list(globals_, options());
  ASSERT_EQ(
      build(
          list,
          {{none, "/o/0"}, {last, "/o/1"}, {word, "/o/2"}, {empty, "/o/3"}, {bare, "/o/4"}, {plain, "/o/5"}}),
      0);
  std::vector<std::string> found;
  for (const Extent* extent : list.extents()) {
    found.push_back(std::string(extent->file->fileName) + " " + extent->volumeUuid.data() + " " +
                    std::to_string(extent->partition) + " " + std::to_string(extent->startBlock));
  }
  const std::string cut(36, 'u');
  EXPECT_EQ(found,
            (std::vector<std::string>{"none  63 0", "plain  63 5", "bare other-spelling 0 -12",
                                      "word " + cut + " 98 0", "empty " + cut + " 98 0", "last v 98 900"}));
  EXPECT_EQ(captured_.count(msg::kCopyListNoPosition, "empty"), 1);
  EXPECT_EQ(captured_.count(msg::kCopyListNoPosition, "plain"), 1);
  EXPECT_EQ(globals_.totalBytes, 4);
}

// A long list is probed ahead by another thread, a short one is not.
TEST_F(ListingTest, aLongListIsLikeTheShortOnesItConsistsOf) {
  Pairs pairs;
  for (int i = 0; i < 600; ++i) {
    const std::string name = "f" + std::to_string(i);
    if (i % 5 == 0)
      (void)dir_.tapeFile(name, std::string(static_cast<std::size_t>(i), 'x'), "volume", 'b', 600 - i);
    if (i % 5 == 1) (void)dir_.file(name, "without a position");
    if (i % 5 == 2) (void)dir_.file(name + "/keep");
    pairs.emplace_back(dir_ / name, dir_ / (i % 3 == 0 ? "out/" : "here.") + name);
  }
  const Logger& log = captured_.logger();
  const auto told = [&](auto begin, auto end) {
    CopyList list(globals_, options());
    EXPECT_EQ(build(list, Pairs(begin, end)), 0);
    const std::string text = captured_.logText();
    const std::size_t from =
        text.find(log.format(msg::kBatchFileListerNextPair, begin->first, begin->second));
    return text.substr(from, text.find(log.format(msg::kBatchFileListerEnd)) - from);
  };
  const std::string longList = told(pairs.begin(), pairs.end());
  std::string shortLists;
  for (auto at = pairs.begin(); at != pairs.end(); at += 50) shortLists += told(at, at + 50);
  EXPECT_EQ(longList, shortLists);
  EXPECT_NE(longList.find(log.format(msg::kCopyListNoPosition, "f596")), std::string::npos);
}

}  // namespace
}  // namespace tamrix
