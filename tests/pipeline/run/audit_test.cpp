// The report of a tape audit: its figures, and lists and volumes that have none.
#include "pipeline/run/audit.h"

#include <gtest/gtest.h>

#include <deque>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "pipeline/run/volume_map.h"
#include "reader/list/copy_list.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wide_properties.h"

namespace tamrix {
namespace {

constexpr long long kNoGap = -1;
constexpr long long kLargest = 9223372036854775807;

struct TapeFile {
  const char* name;
  std::size_t size;  // bytes
  char partition;
  long long startBlock;
  long long blocks;         // in the report
  long long expectedBlock;  // in the report of a gap
};

// The line without its number of megabytes, which depends on the file system.
std::string plain(const std::string& line) {
  return std::regex_replace(line, std::regex(" [0-9-]+ MB"), " # MB");
}

class AuditTest : public testing::Test {
 protected:
  void setBlockSize(const char* value, const char* spelling = "user.ltfs.volumeBlocksize") {
    test::setXattr(dir_.path(), spelling, value);
  }

  // Lists the files and reports on them.
  int report(const std::vector<TapeFile>& files) {
    for (const TapeFile& f : files) {
      dir_.tapeFile(f.name, std::string(f.size, 'x'), "volume", f.partition, f.startBlock);
    }
    const RunOptions options = readRunOptions(*properties);
    CopyList list(globals_, options);
    EXPECT_EQ(list.getList(), 0);
    log_.clear();
    return Audit(options).report(list);
  }

  test::TempDir dir_;
  test::CapturedLog log_{kInfo};
  test::WideProperties properties_{{{"srcpath", dir_.path()}, {"srcspec", "*"}, {"audit", "tape"}}};
  PipelineGlobals globals_;
};

TEST_F(AuditTest, figuresOfLists) {
  struct Case {
    const char* what;
    std::vector<TapeFile> files;
    long long span;  // blocks
    long long used;  // blocks
    int percent;     // reclaimable
  };
  const Case cases[] = {
      {"side by side", {{"a", 1001, 'b', 10, 2, 0}, {"b", 999, 'b', 12, 1, kNoGap}}, 3, 3, 0},
      {"apart", {{"a", 10, 'b', 10, 1, 0}, {"b", 10, 'b', 20, 1, 11}}, 11, 2, 82},
      {"from block 0; one that ends on a block counts one more",
       {{"a", 1001, 'b', 0, 2, kNoGap}, {"b", 2000, 'b', 3, 2, 2}},
       6,
       4,
       34},
      {"an empty file reports no gap and moves nothing",
       {{"a", 1000, 'b', 0, 1, kNoGap}, {"b", 0, 'b', 7, 0, kNoGap}, {"c", 1000, 'b', 8, 1, 1}},
       10,
       2,
       80},
      {"the second partition behind the first",
       {{"a", 1000, 'a', 100, 1, 0}, {"b", 1000, 'b', 10, 1, 101}},
       -88,
       2,
       102},
      {"the second ends where the first begins",
       {{"a", 1000, 'a', 11, 1, 0}, {"b", 0, 'b', 10, 0, kNoGap}},
       0,
       1,
       0},
  };
  setBlockSize("1000", "user.ltfs.volume_blocksize");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(report(c.files), 0);
    std::vector<std::string> expected;
    const auto expect = [&](auto... message) { expected.push_back(plain(logger->format(message...))); };
    for (const TapeFile& f : c.files) {
      if (f.expectedBlock != kNoGap) {
        const std::string gap =
            logger->format(msg::kAuditGapText, f.expectedBlock, f.startBlock, f.startBlock - f.expectedBlock);
        expect(msg::kAuditGap, gap);
      }
      expect(msg::kAuditFile, logger->format(msg::kAuditFileText, f.name, f.partition, f.startBlock,
                                             static_cast<long long>(f.size), f.blocks, 0));
      std::filesystem::remove(dir_ / f.name);
    }
    if (c.span == 0) expect(msg::kAuditNoSpan);
    const long count = static_cast<long>(c.files.size());
    if (c.span != 0) expect(msg::kAuditHeader, dir_.path(), count, c.span, c.used, 0, c.percent);
    std::vector<std::string> lines = log_.logLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(log_.outputText(), c.span == 0 ? "" : lines.back() + "\n");
    lines.back() = plain(lines.back());
    EXPECT_EQ(lines, expected);
  }
}

TEST_F(AuditTest, blockSizesThatAreNoneEmptyListsAndHugeStartBlocksAreReported) {
  const RunOptions options = readRunOptions(*properties);
  const CopyList none(globals_, options);
  EXPECT_EQ(Audit(options).report(none), 1);
  EXPECT_EQ(log_.count(msg::kAuditNoBlockSize, dir_.path()), 1);
  for (const char* value : {"0", "-524288", "", "x1", "2147483648", "4294967297", "18446744073709551617"}) {
    setBlockSize(value);
    EXPECT_EQ(report({{"a", 10, 'b', 0, 1, kNoGap}}), 1) << value;
    EXPECT_EQ(log_.count(msg::kAuditBadBlockSize, value, dir_.path()), 1) << value;
    EXPECT_EQ(log_.logLines().size(), 1U) << value;
  }
  setBlockSize("1");
  EXPECT_EQ(Audit(options).report(none), 1);
  EXPECT_EQ(log_.count(msg::kAuditNoFiles), 1);
  // No arithmetic that overflows, or divides the smallest number by -1.
  for (const long long other : {-kLargest - 1, -1LL, kLargest - 1}) {
    EXPECT_EQ(report({{"a", 1000, 'b', kLargest, 0, 0}, {"b", 1000, 'b', other, 0, 0}}), 0) << other;
    EXPECT_EQ(log_.logLines().size(), 5U) << other;
  }
}

// Ten cells of ten blocks; a file of one block shows, wherever it lies.
TEST(VolumeMap, cellsTellDataGapsAndFreeRoom) {
  struct Case {
    std::vector<std::pair<long long, long long>> files;  // start block, blocks
    long long freeBlocks;
    const char* bar;
  };
  const Case cases[] = {
      {{}, 100, ""},
      {{{0, 100}}, 0, "##########"},
      {{{0, 35}, {35, 15}}, 50, "#####-----"},
      {{{20, 10}, {45, 1}, {69, 1}}, 30, "..#.+.+---"},
      {{{30, 10}, {30, 5}, {40, 20}}, 40, "...###----"},
  };
  for (const Case& c : cases) {
    TapeLayout layout(1000);
    std::deque<FileC> files;
    std::deque<Extent> extents;
    for (const auto& [start, blocks] : c.files) {
      struct stat status {};
      status.st_size = blocks * 1000;
      Extent& extent = extents.emplace_back();
      extent.partition = 'b';
      extent.startBlock = start;
      extent.file = &files.emplace_back("f", "", status);
      (void)layout.add(extent);
    }
    const VolumeMap map =
        drawVolume(layout, static_cast<std::uint64_t>(c.freeBlocks) * 1000, 10, MapCharacters::kAscii);
    EXPECT_EQ(map.bars.empty() ? "" : map.bars.front(), c.bar);
  }
}

}  // namespace
}  // namespace tamrix
