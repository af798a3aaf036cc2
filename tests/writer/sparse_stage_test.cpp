// The sparse stage and the writer behind it: which buffers become holes, and that nothing else does.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

// 'd' is a piece of data of `size` bytes, 'z' one of zeros, '1' a piece of zeros that ends in data; what
// `tail` says follows as it is.
std::string pieces(const std::string& pattern, std::size_t size, const std::string& tail = "") {
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
  for (off_t begin = 0, end = 0; (begin = lseek(fd, end, SEEK_DATA)) >= 0; sum += end - begin) {
    end = lseek(fd, begin, SEEK_HOLE);
  }
  close(fd);
  return sum;
}

TEST(SparseStage, holesAreTheBuffersOfZerosAndTheCopyIsEqual) {
  constexpr std::size_t k64 = 65536;
  struct Case {
    const char* what;
    std::size_t bufferSize;
    std::string content;
    int holes;           // buffers found all zero
    std::int64_t bytes;  // at most, not in holes
  };
  const Case cases[] = {
      {"hole first", k64, pieces("zd", k64), 1, k64},
      {"zero tail of whole buffers", k64, pieces("dzz", k64), 2, k64},
      {"zero tail of part of a buffer", k64, pieces("dz", k64, pieces("z", 10)), 2, k64},
      {"data behind a hole, part of a buffer", k64, pieces("dz", k64, "end"), 1, k64 + 4096},
      {"nothing but zeros", k64, pieces("zzz", k64, pieces("z", 1)), 4, 0},
      {"zeros up to the last byte of a buffer", k64, pieces("1z1", k64), 1, 2 * k64},
      {"zeros that straddle two buffers", k64, "x" + pieces("1", 2 * k64 - 1), 0, 2 * k64},
      {"empty", k64, "", 1, 0},
      {"odd buffers", 50001, pieces("dzzd", 50001, pieces("z", 3)), 3, 2 * (50001 + 8192)},
      {"tiny buffers", 7, pieces("z", 70, "x") + pieces("z", 70), 20, 4096},
  };
  for (const Case& c : cases) {
    const std::string size = std::to_string(c.bufferSize);
    // The larger ring, and one whose only buffer is judged by its new content each time.
    for (const std::string& ring : {std::string("1MB"), size}) {
      const test::TempDir dir;
      dir.file("src/f", c.content);
      // What was there shows through where a hole is only skipped.
      dir.file("dst/f", std::string(400000, 'o'));
      const test::ManagerRun run(dir,
                                 {{"sparse", "enable"}, {"total-buffer-size", ring}, {"buffer-size", size}});
      EXPECT_EQ(run.code + logger->returnCode(), 0);
      EXPECT_EQ(run.log.count(msg::kSparseStageBlockFound, "f"), c.holes) << c.what;
      EXPECT_EQ(test::readFile(dir / "dst/f"), c.content) << c.what;
      EXPECT_LE(dataBytes(dir / "dst/f"), c.bytes) << c.what;
    }
  }
}

// Two of them are larger than what one slot can stand for.
TEST(SparseStage, holesOfAnySizeKeepWhatLiesBetweenThem) {
  constexpr off_t kSize = off_t{9} << 30;
  constexpr off_t kData[] = {(off_t{5} << 30) - 4096, (off_t{5} << 30) + 50001, kSize - 4};
  const test::TempDir dir;
  const std::string source = dir.file("src/f");
  for (const off_t at : kData) std::fstream(source).seekp(at) << "data";
  for (const char* bufferSize : {"128KB", "50001"}) {
    std::filesystem::remove_all(dir / "dst");
    const test::ManagerRun run(
        dir, {{"sparse", "enable"}, {"total-buffer-size", "1MB"}, {"buffer-size", bufferSize}}, kUrgent);
    EXPECT_EQ(run.code + logger->returnCode(), 0);
    EXPECT_EQ(std::filesystem::file_size(dir / "dst/f"), kSize);
    EXPECT_LE(dataBytes(dir / "dst/f"), 3 * (131072 + 8192));
    for (const off_t at : kData) {
      std::string bytes;
      std::getline(std::ifstream(dir / "dst/f").seekg(at), bytes, '\0');
      EXPECT_EQ(bytes, "data") << at;
    }
  }
}

}  // namespace
}  // namespace tamrix
