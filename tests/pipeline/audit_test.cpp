// The report of a tape audit: its figures, and lists and volumes that have none.
#include "pipeline/audit.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reader/copy_list.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wide_properties.h"

namespace tamrix {
namespace {

using test::CapturedLog;
using test::setXattr;
using test::TempDir;
using test::WideProperties;

constexpr const char* kVolume = "30a91a08-daae-48d1-ae75-69804e61d2ea";

struct TapeFile {
  const char* name;
  std::size_t size;  // bytes
  char partition;
  long long startBlock;
};

// The line with a "#" for the number of megabytes.
std::string withoutMegabytes(std::string line) {
  const std::size_t end = line.find(" MB (");
  const std::size_t begin = line.rfind(' ', end - 1) + 1;
  return line.replace(begin, end - begin, "#");
}

class AuditTest : public testing::Test {
 protected:
  AuditTest() : properties_({{"srcpath", dir_.path()}, {"srcspec", "*"}, {"audit", "tape"}}) {}

  void setBlockSize(const char* value) { setXattr(dir_.path(), "user.ltfs.volumeBlocksize", value); }

  // Lists the files and reports on them.
  int report(const std::vector<TapeFile>& files) {
    for (const TapeFile& f : files) {
      dir_.tapeFile(f.name, std::string(f.size, 'x'), kVolume, f.partition, f.startBlock);
    }
    CopyList list(globals_);
    EXPECT_EQ(list.build(), 0);
    log_.clear();
    return Audit(globals_).report(list);
  }

  TempDir dir_;
  CapturedLog log_{kInfo};
  WideProperties properties_;
  PipelineGlobals globals_;
};

TEST_F(AuditTest, figuresOfLists) {
  struct Case {
    const char* what;
    const char* blockSize;
    std::vector<TapeFile> files;
    std::vector<std::string> lines;
    const char* summary;  // from the number of files on; # for what depends on the file system
  };
  const Case cases[] = {
      {"two files side by side",
       "524288",
       {{"a", 1000, 'b', 10}, {"b", 1000, 'b', 11}},
       {"Audit:cpr - Gap detected - Expected 0, actual 10, delta 10",
        "Audit:cpr - File a, p:b, sb:10, size:1000, blocks:1, offset:0",
        "Audit:cpr - File b, p:b, sb:11, size:1000, blocks:1, offset:0"},
       "files=2, total blocks=2, used blocks=2, # MB (0%) reclaimable"},
      {"two files apart",
       "524288",
       {{"a", 1000, 'b', 10}, {"b", 1000, 'b', 20}},
       {"Audit:cpr - Gap detected - Expected 0, actual 10, delta 10",
        "Audit:cpr - File a, p:b, sb:10, size:1000, blocks:1, offset:0",
        "Audit:cpr - Gap detected - Expected 11, actual 20, delta 9",
        "Audit:cpr - File b, p:b, sb:20, size:1000, blocks:1, offset:0"},
       "files=2, total blocks=11, used blocks=2, # MB (82%) reclaimable"},
      {"files of several blocks, the first at block 0; the last ends on a block and counts one more",
       "1000",
       {{"a", 1001, 'b', 0}, {"b", 2000, 'b', 3}},
       {"Audit:cpr - File a, p:b, sb:0, size:1001, blocks:2, offset:0",
        "Audit:cpr - Gap detected - Expected 2, actual 3, delta 1",
        "Audit:cpr - File b, p:b, sb:3, size:2000, blocks:2, offset:0"},
       "files=2, total blocks=6, used blocks=4, # MB (34%) reclaimable"},
      {"an empty file reports no gap and moves nothing",
       "1000",
       {{"a", 1000, 'b', 0}, {"b", 0, 'b', 7}, {"c", 1000, 'b', 8}},
       {"Audit:cpr - File a, p:b, sb:0, size:1000, blocks:1, offset:0",
        "Audit:cpr - File b, p:b, sb:7, size:0, blocks:0, offset:0",
        "Audit:cpr - Gap detected - Expected 1, actual 8, delta 7",
        "Audit:cpr - File c, p:b, sb:8, size:1000, blocks:1, offset:0"},
       "files=3, total blocks=10, used blocks=2, # MB (80%) reclaimable"},
      {"two partitions, the second one behind the first",
       "1000",
       {{"a", 1000, 'a', 100}, {"b", 1000, 'b', 10}},
       {"Audit:cpr - Gap detected - Expected 0, actual 100, delta 100",
        "Audit:cpr - File a, p:a, sb:100, size:1000, blocks:1, offset:0",
        "Audit:cpr - Gap detected - Expected 101, actual 10, delta -91",
        "Audit:cpr - File b, p:b, sb:10, size:1000, blocks:1, offset:0"},
       "files=2, total blocks=-88, used blocks=2, # MB (102%) reclaimable"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    setBlockSize(c.blockSize);
    EXPECT_EQ(report(c.files), 0);
    std::vector<std::string> lines = log_.logLines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(log_.outputText(), lines.back() + "\n");
    const std::string summary = "Status-header, mountPoint=\"" + dir_.path() + "\", " + c.summary;
    EXPECT_EQ(withoutMegabytes(lines.back()), summary);
    lines.pop_back();
    EXPECT_EQ(lines, c.lines);
    for (const TapeFile& f : c.files) std::filesystem::remove(dir_ / f.name);
  }
}

TEST_F(AuditTest, blockSizeThatIsNoneIsRefused) {
  for (const char* value :
       {"0", "-524288", "", "abc", "x1", "2147483648", "4294967297", "18446744073709551617"}) {
    setBlockSize(value);
    EXPECT_EQ(report({{"a", 10, 'b', 0}}), 1) << value;
    EXPECT_EQ(log_.count(msg::kAuditBadBlockSize, value, dir_.path()), 1) << value;
    EXPECT_EQ(log_.logLines().size(), 1U) << value;
    EXPECT_EQ(log_.outputText(), "") << value;
  }
}

TEST_F(AuditTest, volumeWithoutBlockSizeIsRefusedButEitherSpellingWillDo) {
  const std::vector<TapeFile> files = {{"a", 10, 'b', 0}};
  EXPECT_EQ(report(files), 1);
  EXPECT_EQ(log_.count(msg::kAuditNoBlockSize, dir_.path()), 1);
  setXattr(dir_.path(), "user.ltfs.volume_blocksize", "524288");
  EXPECT_EQ(report(files), 0);
  EXPECT_EQ(logger->returnCode(), 1);
}

TEST_F(AuditTest, emptyListIsTold) {
  setBlockSize("524288");
  EXPECT_EQ(Audit(globals_).report(CopyList(globals_)), 1);
  EXPECT_EQ(log_.count(msg::kAuditNoFiles), 1);
}

// The second partition's file ends just where the first one's begins.
TEST_F(AuditTest, filesThatSpanNoBlocksGetAWarningForASummary) {
  setBlockSize("524288");
  EXPECT_EQ(report({{"a", 1000, 'a', 11}, {"b", 0, 'b', 10}}), 0);
  EXPECT_EQ(log_.count(msg::kAuditNoSpan), 1);
  EXPECT_EQ(log_.count(msg::kAuditFile, "File b, p:b, sb:10, size:0, blocks:0, offset:0"), 1);
  EXPECT_EQ(log_.outputText(), "");
}

// No arithmetic that overflows, or divides the smallest number by -1.
TEST_F(AuditTest, startBlocksBeyondAllTapesAreReported) {
  constexpr long long kLargest = 9223372036854775807;
  setBlockSize("1");
  for (const long long other : {-kLargest - 1, -1LL, kLargest - 1}) {
    EXPECT_EQ(report({{"a", 1000, 'b', kLargest}, {"b", 1000, 'b', other}}), 0) << other;
    EXPECT_EQ(log_.logLines().size(), 5U) << other;
  }
}

TEST_F(AuditTest, fileGoneMeanwhileLeavesTheFileSystemsFiguresAtZero) {
  setBlockSize("524288");
  dir_.tapeFile("a", "x", kVolume, 'b', 0);
  dir_.tapeFile("b", "x", kVolume, 'b', 9);
  CopyList list(globals_);
  ASSERT_EQ(list.build(), 0);
  std::filesystem::remove(dir_ / "a");
  logger->reinit(kDebug, false);
  EXPECT_EQ(Audit(globals_).report(list), 0);
  EXPECT_EQ(log_.count(msg::kAuditStatfsFailed, "No such file or directory"), 1);
  EXPECT_EQ(log_.count(msg::kAuditBytesWritten, 0), 1);
  EXPECT_EQ(log_.count(msg::kAuditHeader, dir_.path(), 2, 10, 2, 0, 80), 1);
}

}  // namespace
}  // namespace tamrix
