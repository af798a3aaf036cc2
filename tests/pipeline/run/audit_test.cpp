// The report of a tape audit: its figures, block sizes that are none, and the map of the volume.
#include <gtest/gtest.h>

#include <deque>
#include <limits>
#include <regex>

#include "pipeline/run/volume_map.h"
#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

struct TapeFile {
  const char* name;
  std::size_t size;  // bytes
  char partition;
  long long startBlock;
};

test::ManagerRun audit(const test::TempDir& dir, const std::string& blockSize,
                       const std::vector<TapeFile>& files) {
  for (const TapeFile& f : files) {
    dir.tapeFile(std::string("src/") + f.name, std::string(f.size, 'x'), "volume", f.partition, f.startBlock);
  }
  test::setXattr(dir / "src", "user.ltfs.volume_blocksize", blockSize);
  return test::ManagerRun(dir, {{"audit", "tape"}}, kInfo);
}

TEST(Audit, figuresOfLists) {
  struct Case {
    const char* what;
    std::vector<TapeFile> files;
    int gaps;
    long long span;  // blocks
    long long used;  // blocks
    int percent;     // reclaimable
  };
  const Case cases[] = {
      {"side by side", {{"a", 1001, 'b', 10}, {"b", 999, 'b', 12}}, 1, 3, 3, 0},
      {"apart", {{"a", 10, 'b', 10}, {"b", 10, 'b', 20}}, 2, 11, 2, 82},
      {"one that ends on a block counts one more", {{"a", 1001, 'b', 0}, {"b", 2000, 'b', 3}}, 1, 6, 4, 34},
      {"an empty file, no gap", {{"a", 1000, 'b', 0}, {"b", 0, 'b', 7}, {"c", 1000, 'b', 8}}, 1, 10, 2, 80},
      {"second partition behind the first", {{"a", 1000, 'a', 100}, {"b", 1000, 'b', 10}}, 2, -88, 2, 102},
      {"second ends where the first begins", {{"a", 1000, 'a', 11}, {"b", 0, 'b', 10}}, 1, 0, 1, 0},
  };
  for (const Case& c : cases) {
    const test::TempDir dir;
    const test::ManagerRun run = audit(dir, "1000", c.files);
    EXPECT_EQ(run.code, 0) << c.what;
    // Without the megabytes, which depend on the file system.
    const auto plain = [](const std::string& line) {
      return std::regex_replace(line, std::regex(" [0-9-]+ MB"), " # MB");
    };
    const std::string text = plain(run.log.logText());
    const std::string header = logger->format(
        msg::kAuditHeader, dir / "src", static_cast<long>(c.files.size()), c.span, c.used, 0, c.percent);
    const std::string last = c.span == 0 ? logger->format(msg::kAuditNoSpan) : plain(header);
    EXPECT_NE(text.find(last + "\n"), std::string::npos) << c.what << '\n' << last << '\n' << text;
    const std::regex gap("Gap detected");
    EXPECT_EQ(std::distance(std::sregex_iterator(text.begin(), text.end(), gap), {}), c.gaps) << text;
  }
}

TEST(Audit, refusesBlockSizesThatAreNoneAndTakesAnyStartBlock) {
  const test::TempDir dir;
  for (const char* value : {"0", "-524288", "", "x1", "2147483648", "4294967297", "18446744073709551617"}) {
    const test::ManagerRun run = audit(dir, value, {{"a", 10, 'b', 0}});
    EXPECT_EQ(run.code + logger->returnCode(), 1) << value;
    EXPECT_EQ(run.log.count(msg::kAuditBadBlockSize, value, dir / "src"), 1) << value;
  }
  // No arithmetic that overflows, or divides the smallest number by -1.
  constexpr auto kLargest = std::numeric_limits<long long>::max();
  for (const long long other : {-kLargest - 1, -1LL, kLargest - 1}) {
    const test::ManagerRun run = audit(dir, "1", {{"a", 1000, 'b', kLargest}, {"b", 1000, 'b', other}});
    EXPECT_EQ(run.code + logger->returnCode(), 0) << run.log.logText();
  }
}

// Ten cells of ten blocks; a file of one block shows, wherever it lies.
TEST(VolumeMap, cellsTellDataGapsAndFreeRoom) {
  struct Case {
    std::vector<std::pair<long long, long long>> files;  // start block, blocks
    std::uint64_t freeBlocks;
    std::vector<std::string> bars;
  };
  const Case cases[] = {
      {{}, 100, {}},
      {{{0, 100}}, 0, {"##########"}},
      {{{0, 35}, {35, 15}}, 50, {"#####-----"}},
      {{{20, 10}, {45, 1}, {69, 1}}, 30, {"..#.+.+---"}},
      {{{30, 10}, {30, 5}, {40, 20}}, 40, {"...###----"}},
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
      extent.file = &files.emplace_back(FilePair{}, status);
      (void)layout.add(extent);
    }
    EXPECT_EQ(drawVolume(layout, c.freeBlocks * 1000, 10, MapCharacters::kAscii).bars, c.bars);
  }
}

}  // namespace
}  // namespace tamrix
