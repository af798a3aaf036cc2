// The sparse stage and the writer behind it: which buffers become holes, and that nothing else does.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

using test::ManagerRun;
using test::readFile;
using test::TempDir;

// A text of pieces of `size` bytes: 'd' is a piece of data, 'z' one of zeros, '1' a piece of zeros that ends
// in data; what `tail` says follows as it is.
std::string pieces(const std::string& pattern, std::size_t size, const std::string& tail) {
  std::string content;
  for (const char kind : pattern) {
    content += std::string(size, kind == 'd' ? 'x' : '\0');
    if (kind == '1') content.back() = 1;
  }
  return content + tail;
}

// The bytes of the file that are not in holes.
std::int64_t dataBytes(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::int64_t sum = 0;
  for (off_t end = 0;;) {
    const off_t begin = lseek(fd, end, SEEK_DATA);
    if (begin < 0) break;
    end = lseek(fd, begin, SEEK_HOLE);
    sum += end - begin;
  }
  close(fd);
  return sum;
}

std::string zeros(std::size_t n) { return std::string(n, '\0'); }

TEST(SparseStage, holesAreTheBuffersOfZerosAndTheCopyIsEqual) {
  struct Case {
    const char* what;
    std::size_t bufferSize;
    std::string content;
    int holes;           // buffers found all zero
    std::int64_t bytes;  // at most, not in holes
  };
  const Case cases[] = {
      {"data only", 65536, pieces("ddd", 65536, ""), 0, 3 * 65536},
      {"hole in the middle", 65536, pieces("dzzd", 65536, ""), 2, 2 * 65536},
      {"hole first", 65536, pieces("zd", 65536, ""), 1, 65536},
      {"zero tail of whole buffers", 65536, pieces("dzz", 65536, ""), 2, 65536},
      {"zero tail of part of a buffer", 65536, pieces("dz", 65536, zeros(10)), 2, 65536},
      {"data behind a hole, part of a buffer", 65536, pieces("dz", 65536, "end"), 1, 65536 + 4096},
      {"nothing but zeros", 65536, pieces("zzz", 65536, zeros(1)), 4, 0},
      {"zeros up to the last byte of a buffer", 65536, pieces("1z1", 65536, ""), 1, 2 * 65536},
      {"zeros up to the last byte of the file", 65536, zeros(65536 + 5) + "x", 1, 4096},
      {"zeros that straddle two buffers", 65536, "x" + zeros(2 * 65536 - 2) + "x", 0, 2 * 65536},
      {"less than a buffer, data", 65536, "abc", 0, 4096},
      {"less than a buffer, seven zeros", 65536, zeros(7), 1, 0},
      {"empty", 65536, "", 1, 0},
      {"odd buffers", 50001, pieces("dzzd", 50001, zeros(3)), 3, 2 * (50001 + 8192)},
      {"odd buffers, hole first", 30000, pieces("zzd", 30000, "x"), 2, 30001 + 8192},
      {"tiny buffers", 7, zeros(70) + "x" + zeros(70), 20, 4096},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const TempDir dir;
    dir.file("src/f", c.content);
    // What was there shows through where a hole is only skipped.
    dir.file("dst/f", std::string(400000, 'o'));
    const ManagerRun run(
        dir,
        {{"sparse", "enable"}, {"total-buffer-size", "1MB"}, {"buffer-size", std::to_string(c.bufferSize)}});
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(logger->returnCode(), 0);
    EXPECT_EQ(run.log.count(msg::kSparseBlockFound, "f"), c.holes);
    EXPECT_EQ(run.log.count(msg::kStatusSuccess, dir / "src/f", dir / "dst/f"), 1);
    EXPECT_EQ(readFile(dir / "dst/f"), c.content);
    EXPECT_LE(dataBytes(dir / "dst/f"), c.bytes);
  }
}

// The buffers of a sparse file are zeros in memory, whatever they held before.
TEST(SparseStage, bufferUsedBeforeIsJudgedByItsNewContent) {
  const TempDir dir;
  const std::string content = pieces("dzdzddzz", 4096, "end");
  for (const char* name : {"a", "b", "c"}) dir.file(std::string("src/") + name, content);
  const ManagerRun run(dir, {{"sparse", "enable"}, {"total-buffer-size", "4KB"}});
  EXPECT_EQ(run.code, 0);
  for (const char* name : {"a", "b", "c"}) {
    EXPECT_EQ(readFile(dir / (std::string("dst/") + name)), content) << name;
    EXPECT_EQ(run.log.count(msg::kSparseBlockFound, name), 4) << name;
  }
}

TEST(SparseStage, withoutTheOptionZerosAreWritten) {
  const TempDir dir;
  dir.file("src/f", zeros(3 * 65536));
  const ManagerRun run(dir, {{"buffer-size", "64KB"}});
  EXPECT_EQ(readFile(dir / "dst/f"), zeros(3 * 65536));
  EXPECT_EQ(dataBytes(dir / "dst/f"), 3 * 65536);
}

}  // namespace
}  // namespace tamrix
