// The report of a tape audit: its figures, and lists and volumes that have none.
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

constexpr long long kLargest = 9223372036854775807;

struct TapeFile {
  const char* name;
  std::size_t size;  // bytes
  char partition;
  long long startBlock;
};

// What an audit of these files says, without what begins or ends many lines, and without the number of
// megabytes in use, which depends on the file system. It looks at every file, whatever was asked for, and
// makes no ring: a size that no ring can have doesn't matter.
std::string report(const std::vector<TapeFile>& files, const char* blockSize, int status) {
  const test::TempDir dir;
  for (const TapeFile& f : files) {
    const std::string path = dir.file(std::string("src/deep/") + f.name, std::string(f.size, 'x'));
    test::setXattr(path, "user.ltfs.startblock", std::to_string(f.startBlock));
    test::setXattr(path, "user.ltfs.partition", std::string(1, f.partition));
  }
  test::setXattr(dir / "src", "user.ltfs.volume_blocksize", blockSize);
  const test::ManagerRun run(
      dir, {{"audit", "tape"}, {"srcspec", "none"}, {"recursive", "disable"}, {"buffer-size", "never"}},
      kInfo);
  EXPECT_EQ(run.code + logger->returnCode(), status);
  EXPECT_FALSE(std::filesystem::exists(dir / "dst"));
  const std::regex varying(R"(Audit:cpr - |Status-header, .*files=|( of)? /.*| [0-9-]+ MB|, offset:0)");
  return std::regex_replace(run.log.logText(), varying, "");
}

TEST(TapeAudit, figuresOfLists) {
  struct Case {
    std::vector<TapeFile> files;
    const char* blockSize;
    std::string lines;
    std::string summary;  // on both streams
  };
  const Case cases[] = {
      {{{"a", 10, 'b', 10}, {"b", 10, 'b', 20}},
       "1000",
       "Gap detected - Expected 0, actual 10, delta 10\nFile a, p:b, sb:10, size:10, blocks:1\n"
       "Gap detected - Expected 11, actual 20, delta 9\nFile b, p:b, sb:20, size:10, blocks:1\n",
       "2, total blocks=11, used blocks=2, (82%) reclaimable\n"},
      // An empty file reports no gap and moves nothing. One that ends on a block counts one more.
      {{{"a", 1001, 'b', 0}, {"b", 0, 'b', 7}, {"c", 1000, 'b', 8}},
       "1000",
       "File a, p:b, sb:0, size:1001, blocks:2\nFile b, p:b, sb:7, size:0, blocks:0\n"
       "Gap detected - Expected 2, actual 8, delta 6\nFile c, p:b, sb:8, size:1000, blocks:1\n",
       "3, total blocks=10, used blocks=3, (70%) reclaimable\n"},
      // The second ends where the first begins.
      {{{"a", 1000, 'a', 11}, {"b", 0, 'b', 10}},
       "1000",
       "Gap detected - Expected 0, actual 11, delta 11\nFile a, p:a, sb:11, size:1000, blocks:1\n"
       "File b, p:b, sb:10, size:0, blocks:0\n"
       "WARNING Files span no blocks, reclaimable space is not known\n",
       ""},
      // No arithmetic that overflows.
      {{{"a", 1000, 'a', kLargest}, {"b", 1000, 'b', -kLargest}},
       "1",
       "Gap detected - Expected 0, actual 9223372036854775807, delta 9223372036854775807\n"
       "File a, p:a, sb:9223372036854775807, size:1000, blocks:1000\n"
       "Gap detected - Expected -9223372036854774809, actual -9223372036854775807, delta -998\n"
       "File b, p:b, sb:-9223372036854775807, size:1000, blocks:1000\n",
       "2, total blocks=1003, used blocks=2000, (100%) reclaimable\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(report(c.files, c.blockSize, 0), c.lines + c.summary + c.summary);
  for (const std::string value : {"0", "-524288", "", "x1", "2147483648", "18446744073709551617"}) {
    EXPECT_EQ(report({{"a", 10, 'b', 0}}, value.c_str(), 1), "ERROR Block size '" + value + "'\n");
  }
}

}  // namespace
}  // namespace tamrix
