// What only a mounted volume shows: what the order saves, what a drive can't read, and what a volume refuses.
#include <cerrno>
#include <cstring>

#include "tests/program/copy_scene.h"
#include "tests/support/mounted_volume.h"

namespace tamrix {
namespace {

using test::MountedVolume;
using test::TapeAccount;

constexpr long long kBlock = 4096;
const std::string kSmallBlocks = "-blocksize=4096";
constexpr long long kFar = 10'000'000'000'000 / kBlock;  // more than half a tape

// A content that tells where it is from.
std::string content(char letter, long long length) {
  std::string made(static_cast<std::size_t>(length), letter);
  for (std::size_t i = 0; i < made.size(); i += 61) made[i] = static_cast<char>('0' + i / 61 % 10);
  return made;
}

// Files whose names say nothing about where they lie. In tape order: index, d, b/2, a, e, b/1, c.
const std::vector<MountedVolume::File> kScattered = {
    {"a", content('a', 3 * kBlock), 'b', kFar / 2}, {"b/1", content('1', 10), 'b', 3 * kFar / 4},
    {"b/2", content('2', kBlock + 1), 'b', 1002},   {"c", content('c', 70 * kBlock), 'b', kFar},
    {"d", content('d', 2 * kBlock), 'b', 1000},     {"e", content('e', kBlock - 1), 'b', kFar / 2 + 3},
    {"index", content('i', 2 * kBlock), 'a', 5000}};
const std::vector<std::string> kTapeOrder = {"index", "d", "b/2", "a", "e", "b/1", "c"};

ProgramRun copyTree(const std::string& from, const std::string& to, const std::string& more = "-recursive") {
  return runProgram({"-srcpath=" + from, "-srcspec=*", "-dstpath=" + to, "-loglevel=PROGRESS", more});
}

#define SKIP_UNLESS_MOUNTED(volume) \
  if (!(volume).isMounted()) GTEST_SKIP() << "mounting a FUSE file system is refused here"

TEST(TapeVolume, copiesFromItReadEveryFileOnceInTapeOrderAndTakeLessTimeThanInDirectoryOrder) {
  MountedVolume byName(kScattered, {kSmallBlocks});
  SKIP_UNLESS_MOUNTED(byName);
  for (const MountedVolume::File& file : kScattered) test::readFile(byName / file.path);
  const TapeAccount directoryOrder = byName.unmount();
  for (const char* buffer : {"-buffer-size=1000B", "-buffer-size=4KB", "-buffer-size=1MB"}) {
    MountedVolume volume(kScattered, {kSmallBlocks});
    const test::TempDir target;
    const ProgramRun run = runProgram(
        {"-srcpath=" + volume.path(), "-srcspec=*", "-dstpath=" + target.path(), "-recursive", buffer});
    EXPECT_EQ(run.status, 0) << run;
    const TapeAccount account = volume.unmount();
    EXPECT_EQ(account.reads, kTapeOrder) << run;
    // What lies behind another file is reached without a locate: b/2 behind d, e behind a.
    EXPECT_EQ(account.locates, 5);
    EXPECT_EQ(account.bytes, directoryOrder.bytes);
    EXPECT_TRUE(account.seconds > 0 && account.seconds < directoryOrder.seconds / 1.5);
    for (const MountedVolume::File& file : kScattered) {
      EXPECT_TRUE(test::readFile(target / file.path) == file.content) << file.path << run;
    }
  }
}

// Ordinary attributes arrive; each of the volume's own costs a warning. Without positions the order is by
// name.
TEST(TapeVolume, attributesUnreadableOrRefusedAtTheDestinationCostAWarningEach) {
  const std::string unreadable = "user.ltfs.startblock";
  MountedVolume from(kScattered, {kSmallBlocks, "-bad-attribute=" + unreadable});
  MountedVolume to({{"new/deep/a", "longer than what comes" + content('a', 4 * kBlock), 'b', 7}});
  SKIP_UNLESS_MOUNTED(from);
  test::setXattr(from / "a", "user.mine", "kept");
  const ProgramRun run = copyTree(from.path(), to / "new/deep");
  EXPECT_EQ(run.status, 0) << run;
  for (const std::string name : {"softwareVendor", "volumeUUID", "volumeBlocksize", "partition"})
    EXPECT_EQ(run.count(text(msg::kFileWriterXattrFailed, "user.ltfs." + name)), 7) << run;
  for (const MountedVolume::File& file : kScattered) {
    const std::string path = "new/deep/" + file.path;
    EXPECT_EQ(run.count(text(msg::kFileWriterStatusWarning, from / file.path, to / path)), 1) << run;
    EXPECT_TRUE(test::readFile(to.backing(path)) == file.content) << file.path;
    EXPECT_GE(run.count(text(msg::kAttributesUnreadable, unreadable, from / file.path, strerror(EIO))), 1)
        << run;
  }
  EXPECT_EQ(run.count(text(msg::kFileWriterXattrFailed, "user.mine")), 0) << run;
  EXPECT_EQ(test::getXattr(to / "new/deep/a", "user.mine"), "kept");
  EXPECT_EQ(from.unmount().reads, (std::vector<std::string>{"b/1", "b/2", "a", "c", "d", "e", "index"}));
}

TEST(TapeVolume, aBlockThatCannotBeReadEndsTheRunAndLeavesNoHalfFile) {
  MountedVolume volume({{"first", content('1', 3 * kBlock), 'b', 100},
                        {"broken", content('2', 40 * kBlock), 'b', 200},
                        {"third", content('3', 3 * kBlock), 'b', 300}},
                       {kSmallBlocks, "-bad-block=b:220"});
  SKIP_UNLESS_MOUNTED(volume);
  for (const char* buffer : {"-buffer-size=4KB", "-buffer-size=1MB"}) {
    const test::TempDir target;
    const ProgramRun run = copyTree(volume.path(), target.path(), buffer);
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(text(msg::kFileReaderReadFailed, strerror(EIO))), 1) << run;
    // What was read before may or may not have been written by then, but whole.
    for (const auto& entry : std::filesystem::directory_iterator(target.path()))
      EXPECT_TRUE(entry.path() == target / "first" &&
                  test::readFile(entry.path()) == content('1', 3 * kBlock))
          << entry << run;
  }
}

// A file that can't be read, and a checksum that is there but can't be read, stop no audit of the others.
TEST(TapeVolume, auditsReadInTapeOrderPastWhatCannotBeRead) {
  const std::string attribute = "user._ltfs.xxh128";
  MountedVolume volume(kScattered, {kSmallBlocks, "-bad-attribute=" + attribute,
                                    "-bad-block=b:" + std::to_string(kFar / 2 + 1)});
  SKIP_UNLESS_MOUNTED(volume);
  test::setXattr(volume / "d", attribute, "there");
  const ProgramRun run =
      runProgram({"-audit=files", "-srcpath=" + volume.path(), "-recursive", "-checksum-update=newonly"},
                 {.program = TAMRIX_AUDIT_PROGRAM});
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_EQ(run.count(text(msg::kManagerAuditCounts, 0, 0, 6, 1)), 1) << run;
  EXPECT_EQ(run.count(text(msg::kChecksumStageNotReplaced, attribute, volume / "d")), 1) << run;
  for (const MountedVolume::File& file : kScattered) {
    const std::string stored = test::getXattr(volume.backing(file.path), attribute);
    if (file.path == "d" || file.path == "a") {
      EXPECT_EQ(stored, file.path == "d" ? "there" : "<none>") << run;
    } else {
      EXPECT_EQ(stored.size(), 32U) << file.path << run;
    }
  }
  EXPECT_EQ(volume.unmount().reads, kTapeOrder) << run;
}

}  // namespace
}  // namespace tamrix
