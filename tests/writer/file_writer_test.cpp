// The writer stage, fed buffer by buffer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_properties.h"
#include "writer/file_writer_module.h"
#include "writer/make_subdir.h"

namespace tamrix {
namespace {

using test::CapturedLog;
using test::readFile;
using test::TempDir;
using test::TestProperties;

struct stat statusOf(std::int64_t size, mode_t mode = S_IFREG | 0644) {
  struct stat status {};
  status.st_size = size;
  status.st_mode = mode;
  return status;
}

class FileWriterTest : public testing::Test {
 protected:
  // Hands the writer `data` as the piece of `file` at `offset`.
  int feed(FileWriterModule& writer, FileC& file, std::int64_t offset, std::string data,
           bool sparse = false) {
    BufferSlot slot{};
    slot.length = static_cast<std::int32_t>(data.size());
    slot.offset = static_cast<std::uint64_t>(offset);
    slot.data = data.data();
    slot.file = &file;
    slot.sparseBlock = sparse ? 1 : 0;
    handed_ += slot.length;
    slot.endOfFile = handed_ == file.fileSize ? 1 : 0;
    if (slot.endOfFile != 0) handed_ = 0;
    return writer.emptyBuffer(slot);
  }

  CapturedLog captured_{kDebug};
  TempDir dir_;
  TestProperties properties_;
  PipelineGlobals globals_;
  std::int64_t handed_ = 0;
};

TEST_F(FileWriterTest, piecesEndUpAtTheirOffsetsWhateverTheirOrder) {
  FileWriterModule writer(globals_);
  FileC file("/s/f", dir_ / "new/dir/f", statusOf(9));
  EXPECT_EQ(feed(writer, file, 3, "def"), 0);
  EXPECT_EQ(feed(writer, file, 0, "abc"), 0);
  EXPECT_EQ(feed(writer, file, 6, "ghi"), 0);
  EXPECT_EQ(readFile(file.dstPath), "abcdefghi");
  EXPECT_EQ(captured_.count(msg::kStatusSuccess, "/s/f", file.dstPath), 1);
  EXPECT_EQ(captured_.count(msg::kWriteDiscontinuity, 3), 1);
  EXPECT_EQ(captured_.count(msg::kWriteDiscontinuity, 0), 1);
  EXPECT_EQ(captured_.count(msg::kWriteDiscontinuity, 6), 1);
}

TEST_F(FileWriterTest, timesModeAndAttributesAreTheSources) {
  const mode_t before = umask(027);
  for (const auto& [mode, expected] : std::vector<std::pair<mode_t, mode_t>>{
           {0644, 0640}, {0777, 0750}, {06755, 0750}, {01666, 01640}, {0400, 0400}}) {
    struct stat status = statusOf(1, S_IFREG | mode);
    status.st_atim = {1000000001, 123456999};
    status.st_mtim = {-5, 999999999};
    FileC file("/s/f", dir_ / ("m" + std::to_string(mode)), status);
    file.eaList.add("user.empty", nullptr, 0);
    file.eaList.add("user.binary", "a\0b", 3);
    FileWriterModule writer(globals_);
    ASSERT_EQ(feed(writer, file, 0, "x"), 0);
    struct stat made {};
    ASSERT_EQ(stat(file.dstPath.c_str(), &made), 0);
    EXPECT_EQ(made.st_mode & 07777, expected) << std::oct << mode;
    EXPECT_EQ(made.st_atim.tv_sec, 1000000001);
    EXPECT_EQ(made.st_atim.tv_nsec, 123456000);
    EXPECT_EQ(made.st_mtim.tv_sec, -5);
    EXPECT_EQ(made.st_mtim.tv_nsec, 999999000);
    EXPECT_EQ(test::getXattr(file.dstPath, "user.empty"), "");
    EXPECT_EQ(test::getXattr(file.dstPath, "user.binary"), std::string("a\0b", 3));
  }
  umask(before);
}

TEST_F(FileWriterTest, anAttributeThatCannotBeSetCostsAWarningAndTheOthersAreStillSet) {
  FileC file("/s/f", dir_ / "f", statusOf(1));
  file.eaList.add("nowhere.x", "1", 1);
  file.eaList.add("user.kept", "2", 1);
  FileWriterModule writer(globals_);
  EXPECT_EQ(feed(writer, file, 0, "x"), 0);
  EXPECT_EQ(captured_.count(msg::kWriteXattrFailed, "nowhere.x"), 1);
  EXPECT_EQ(captured_.count(msg::kStatusWarning, "/s/f", file.dstPath), 1);
  EXPECT_EQ(captured_.count(msg::kStatusSuccess, "/s/f", file.dstPath), 0);
  EXPECT_EQ(test::getXattr(file.dstPath, "user.kept"), "2");
  EXPECT_EQ(logger->returnCode(), 0);
}

TEST_F(FileWriterTest, zerosBecomeHolesAndTheLengthIsExact) {
  constexpr std::int64_t kPiece = 1 << 20;
  const std::string zeros(kPiece, '\0');
  const std::string data(kPiece, 'd');
  globals_.sparseMode = 1;
  struct Row {
    const char* what;
    std::vector<bool> sparse;  // per piece
  };
  for (const Row& row : std::vector<Row>{{"tail", {false, true}},
                                         {"head", {true, false}},
                                         {"middle", {false, true, true, false}},
                                         {"all", {true, true, true}}}) {
    FileC file("/s/f", dir_ / row.what, statusOf(kPiece * static_cast<std::int64_t>(row.sparse.size())));
    FileWriterModule writer(globals_);
    std::string expected;
    for (const bool sparse : row.sparse) {
      const std::string& piece = sparse ? zeros : data;
      ASSERT_EQ(feed(writer, file, static_cast<std::int64_t>(expected.size()), piece, sparse), 0) << row.what;
      expected += piece;
    }
    EXPECT_TRUE(readFile(file.dstPath) == expected) << row.what;
    struct stat made {};
    ASSERT_EQ(stat(file.dstPath.c_str(), &made), 0);
    const auto dataPieces = std::count(row.sparse.begin(), row.sparse.end(), false);
    EXPECT_LE(made.st_blocks * 512, dataPieces * kPiece + 65536) << row.what;
  }
}

TEST_F(FileWriterTest, aMarkIsIgnoredWithoutSparseMode) {
  FileC file("/s/f", dir_ / "f", statusOf(4));
  FileWriterModule writer(globals_);
  EXPECT_EQ(feed(writer, file, 0, "data", true), 0);
  EXPECT_EQ(readFile(file.dstPath), "data");
}

// A limit on file sizes cuts the write that crosses it short and fails the ones behind it.
TEST_F(FileWriterTest, aShortWriteNeverReportsSuccess) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit limit{200000, before.rlim_max};
  for (const bool shortAtTheEnd : {true, false}) {
    PipelineGlobals globals;
    captured_.clear();
    FileC file("/s/f", dir_ / "f", statusOf(shortAtTheEnd ? 250000 : 300000));
    FileWriterModule writer(globals);
    handed_ = 0;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    ASSERT_EQ(feed(writer, file, 0, std::string(150000, 'a')), 0);
    int result = feed(writer, file, 150000, std::string(100000, 'b'));
    if (!shortAtTheEnd) {
      EXPECT_EQ(result, 0);
      result = feed(writer, file, 250000, std::string(50000, 'c'));
    }
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(globals.stopExecution.isSet());
    EXPECT_EQ(captured_.count(msg::kStatusError, "/s/f", file.dstPath), 1);
    EXPECT_EQ(captured_.count(msg::kWriteDeleted, file.dstPath), 1);
    EXPECT_EQ(captured_.count(msg::kWriteIncomplete, file.dstPath, 200000, 250000), shortAtTheEnd ? 1 : 0);
    EXPECT_EQ(captured_.count(msg::kWriteFailed, "File too large"), shortAtTheEnd ? 0 : 1);
    EXPECT_NE(access(file.dstPath.c_str(), F_OK), 0);
  }
}

TEST_F(FileWriterTest, theRunsEndLeavesNoHalfFile) {
  FileC half("/s/half", dir_ / "half", statusOf(6));
  FileC whole("/s/whole", dir_ / "whole", statusOf(2));
  FileWriterModule writer(globals_);
  ASSERT_EQ(feed(writer, whole, 0, "ok"), 0);
  ASSERT_EQ(feed(writer, half, 0, "abc"), 0);
  BufferQ ring;
  ASSERT_EQ(ring.createQ(2, globals_.stopExecution), 0);
  writer.setModuleId(1);
  writer.setRing(ring);
  globals_.stopPipeline();
  writer.run();
  EXPECT_EQ(captured_.count(msg::kStatusError, "/s/half", half.dstPath), 1);
  EXPECT_NE(access(half.dstPath.c_str(), F_OK), 0);
  EXPECT_EQ(readFile(whole.dstPath), "ok");
  EXPECT_NE(fcntl(half.dstFd, F_GETFD), 0);
}

TEST_F(FileWriterTest, aDestinationThatCannotBeMadeIsToldWithTheDirectoryThatFailed) {
  const std::string regular = dir_.file("regular", "r");
  mkdir((dir_ / "directory").c_str(), 0755);
  struct Row {
    std::string destination;
    std::string message;
  };
  Logger& log = captured_.logger();
  for (const Row& row : std::vector<Row>{
           {regular + "/f", log.format(msg::kWriteSecondCreateFailed, "Not a directory")},
           {regular + "/a/b/f", log.format(msg::kWriteSubdirFailed, regular + "/a")},
           {"/proc/no/such/f", log.format(msg::kWriteSubdirFailed, "/proc/no")},
           {dir_ / "directory", log.format(msg::kWriteSecondCreateFailed, "Is a directory")},
       }) {
    PipelineGlobals globals;
    captured_.clear();
    FileC file("/s/f", row.destination, statusOf(1));
    FileWriterModule writer(globals);
    handed_ = 0;
    EXPECT_EQ(feed(writer, file, 0, "x"), 1) << row.destination;
    EXPECT_TRUE(captured_.logText().ends_with(row.message + "\n")) << captured_.logText();
    EXPECT_EQ(captured_.count(msg::kStatusError, "/s/f", row.destination), 0);
    EXPECT_TRUE(globals.stopExecution.isSet());
  }
  EXPECT_EQ(readFile(regular), "r");
}

TEST_F(FileWriterTest, aFifoThatNobodyReadsDoesNotHang) {
  ASSERT_EQ(mkfifo((dir_ / "fifo").c_str(), 0600), 0);
  FileC file("/s/f", dir_ / "fifo", statusOf(1));
  FileWriterModule writer(globals_);
  EXPECT_EQ(feed(writer, file, 0, "x"), 1);
  EXPECT_EQ(captured_.count(msg::kWriteSecondCreateFailed, "No such device or address"), 1);
}

TEST_F(FileWriterTest, makeSubdirMakesAllAndLeavesThePathWhole) {
  std::string path = dir_ / "a/b/c/f";
  EXPECT_EQ(makeSubdir(path), 0);
  EXPECT_EQ(path, dir_ / "a/b/c/f");
  EXPECT_EQ(access((dir_ / "a/b/c").c_str(), F_OK), 0);
  EXPECT_EQ(makeSubdir(path), 0);
  std::string bare = "bare";
  EXPECT_EQ(makeSubdir(bare), 0);
  EXPECT_EQ(captured_.count(msg::kSubdirAtRoot), 1);
}

}  // namespace
}  // namespace tamrix
