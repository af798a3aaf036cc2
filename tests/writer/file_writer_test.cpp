// The writer stage, fed buffer by buffer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wide_properties.h"
#include "writer/file_writer_module.h"

namespace tamrix {
namespace {

// Hands the writer `data` as the piece of `file` at `offset`.
int feed(FileWriterModule& writer, FileC& file, std::uint64_t offset, std::string data, bool last = false) {
  BufferSlot slot{};
  slot.length = static_cast<std::int32_t>(data.size());
  slot.offset = offset;
  slot.data = data.data();
  slot.file = &file;
  slot.endOfFile = last ? 1 : 0;
  return writer.emptyBuffer(slot);
}

TEST(FileWriter, piecesEndUpAtTheirOffsetsAndTheRunsEndLeavesNoHalfFile) {
  const test::CapturedLog captured;
  const test::TempDir dir;
  const test::WideProperties properties;
  PipelineGlobals globals;
  FileWriterModule writer(globals);
  struct stat status {};
  status.st_mode = S_IFREG | 0644;
  status.st_size = 9;
  FileC whole("/s/whole", dir / "new/dir/f", status);
  FileC half("/s/half", dir / "half", status);
  EXPECT_EQ(feed(writer, whole, 3, "def"), 0);
  EXPECT_EQ(feed(writer, half, 0, "abc"), 0);
  EXPECT_EQ(feed(writer, whole, 0, "abc"), 0);
  EXPECT_EQ(feed(writer, whole, 6, "ghi", true), 0);
  EXPECT_EQ(captured.count(msg::kStatusSuccess, whole.srcPath, whole.dstPath), 1);
  BufferQ ring;
  ASSERT_EQ(ring.createQ(2, globals.stopExecution), 0);
  writer.setModuleId(1);
  writer.setRing(ring);
  globals.stopPipeline();
  writer.run();
  EXPECT_EQ(test::readFile(whole.dstPath), "abcdefghi");
  EXPECT_EQ(captured.count(msg::kStatusError, half.srcPath, half.dstPath), 1);
  EXPECT_FALSE(std::filesystem::exists(half.dstPath));
  EXPECT_NE(fcntl(half.dstFd, F_GETFD), 0);
}

}  // namespace
}  // namespace tamrix
