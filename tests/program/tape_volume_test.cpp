// Copies from and to a modelled tape volume: what its order saves, what it refuses, what can't be read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "log/message_ids.h"
#include "tests/support/mounted_volume.h"
#include "tests/support/program_run.h"

namespace tamrix {
namespace {

using test::MountedVolume;
using test::ProgramRun;
using test::TapeAccount;
using test::TempDir;
using test::text;

constexpr long long kBlock = 4096;
const std::string kSmallBlocks = "-blocksize=4096";
constexpr long long kFar = 10'000'000'000'000 / kBlock;  // more than half a tape

const std::vector<std::string> kVirtualNames = {"user.ltfs.softwareVendor", "user.ltfs.volumeUUID",
                                                "user.ltfs.volumeBlocksize", "user.ltfs.partition",
                                                "user.ltfs.startblock"};

// A content that tells where it is from.
std::string content(char letter, long long length) {
  const auto size = static_cast<std::size_t>(length);
  std::string made(size, letter);
  for (std::size_t i = 0; i < size; i += 61) made[i] = static_cast<char>('0' + i / 61 % 10);
  return made;
}

// Files whose names say nothing about where they lie. In tape order: index, d, b/2, a, e, b/1, c.
std::vector<MountedVolume::File> scatteredFiles() {
  return {{"a", content('a', 3 * kBlock), 'b', kFar / 2}, {"b/1", content('1', 10), 'b', 3 * kFar / 4},
          {"b/2", content('2', kBlock + 1), 'b', 1002},   {"c", content('c', 70 * kBlock), 'b', kFar},
          {"d", content('d', 2 * kBlock), 'b', 1000},     {"e", content('e', kBlock - 1), 'b', kFar / 2 + 3},
          {"index", content('i', 2 * kBlock), 'a', 5000}};
}
const std::vector<std::string> kTapeOrder = {"index", "d", "b/2", "a", "e", "b/1", "c"};

ProgramRun copy(const std::string& from, const std::string& to, const std::vector<std::string>& more = {}) {
  std::vector<std::string> args = {"-srcpath=" + from, "-srcspec=*", "-dstpath=" + to, "-loglevel=PROGRESS"};
  args.insert(args.end(), more.begin(), more.end());
  return test::runProgram(args);
}

std::vector<std::string> names(const std::vector<TapeAccount::Read>& reads) {
  std::vector<std::string> result;
  for (const TapeAccount::Read& read : reads) result.push_back(read.path);
  return result;
}

#define SKIP_UNLESS_MOUNTED(volume) \
  if (!(volume).isMounted()) GTEST_SKIP() << (volume).reason()

TEST(TapeVolume, copiesFromItReadEveryFileOnceInTapeOrder) {
  const std::vector<MountedVolume::File> files = scatteredFiles();
  for (const char* buffer : {"-buffer-size=1000B", "-buffer-size=4KB", "-buffer-size=1MB"}) {
    MountedVolume volume(files, {kSmallBlocks});
    SKIP_UNLESS_MOUNTED(volume);
    const TempDir target;
    const ProgramRun run = copy(volume.path(), target.path(), {"-recursive", buffer});
    EXPECT_EQ(run.status, 0) << run;
    const TapeAccount account = volume.unmount();
    EXPECT_EQ(names(account.reads), kTapeOrder) << run;
    // What lies behind another file is reached without a locate: b/2 behind d, e behind a.
    EXPECT_EQ(account.locates, 5);
    for (const MountedVolume::File& file : files) {
      EXPECT_TRUE(test::readFile(target / file.path) == file.content) << file.path << run;
    }
  }
}

TEST(TapeVolume, copiesFromItTakeLessTapeTimeThanReadingInDirectoryOrder) {
  MountedVolume byName(scatteredFiles(), {kSmallBlocks});
  SKIP_UNLESS_MOUNTED(byName);
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(byName.path())) {
    if (entry.is_regular_file()) paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  for (const std::string& path : paths) test::readFile(path);
  const TapeAccount directoryOrder = byName.unmount();

  MountedVolume volume(scatteredFiles(), {kSmallBlocks});
  const TempDir target;
  EXPECT_EQ(copy(volume.path(), target.path(), {"-recursive"}).status, 0);
  const TapeAccount tapeOrder = volume.unmount();

  EXPECT_EQ(tapeOrder.bytes, directoryOrder.bytes);
  EXPECT_GT(tapeOrder.seconds, 0);
  EXPECT_LT(tapeOrder.seconds, directoryOrder.seconds / 1.5);
}

TEST(TapeVolume, virtualAttributesRefusedAtTheDestinationCostAWarningEach) {
  MountedVolume from(scatteredFiles(), {kSmallBlocks, "-uuid=0cb8b2a1-4ffb-4e6a-8ac3-ae7ba01cc1e5"});
  MountedVolume to({});
  SKIP_UNLESS_MOUNTED(from);
  SKIP_UNLESS_MOUNTED(to);
  test::setXattr(from / "a", "user.mine", "kept");
  const ProgramRun run = copy(from.path(), to / "new/deep", {"-recursive"});
  EXPECT_EQ(run.status, 0) << run;
  const std::vector<MountedVolume::File> files = scatteredFiles();
  for (const std::string& name : kVirtualNames) {
    EXPECT_EQ(run.count(text(msg::kFileWriterXattrFailed, name)), static_cast<int>(files.size()))
        << name << run;
  }
  EXPECT_EQ(run.count(text(msg::kFileWriterXattrFailed, "user.mine")), 0) << run;
  for (const MountedVolume::File& file : files) {
    const std::string path = "new/deep/" + std::string(file.path);
    EXPECT_EQ(run.count(text(msg::kFileWriterStatusWarning, from / file.path, to / path)), 1)
        << file.path << run;
    EXPECT_TRUE(test::readFile(to.backing(path)) == file.content) << file.path;
  }
  EXPECT_EQ(test::getXattr(to / "new/deep/a", "user.mine"), "kept");
  EXPECT_EQ(test::getXattr(to / "new/deep/a", "user.ltfs.volumeUUID"),
            test::getXattr(to.path(), "user.ltfs.volumeUUID"));
}

TEST(TapeVolume, copiesOfOrdinaryFilesToItSucceedWithoutAWarning) {
  MountedVolume volume({{"old", "longer than what comes", 'b', 7}});
  SKIP_UNLESS_MOUNTED(volume);
  const TempDir source;
  const std::string path = source.file("old", "new");
  test::setXattr(path, "user.mine", "kept");
  std::filesystem::permissions(path, std::filesystem::perms(0640));
  const std::filesystem::file_time_type whole(std::chrono::duration_cast<std::chrono::seconds>(
      std::filesystem::file_time_type::clock::now().time_since_epoch() - std::chrono::hours(1000)));
  std::filesystem::last_write_time(path, whole);
  source.file("large", content('l', 3000000));
  for (const std::vector<std::string>& options :
       {std::vector<std::string>{}, {"-sparse", "-buffer-size=4KB"}}) {
    const ProgramRun run = copy(source.path(), volume.path(), options);
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(run.err.find("WARNING Error"), std::string::npos) << run;
    EXPECT_EQ(run.count(text(msg::kFileWriterStatusSuccess, path, volume / "old")), 1) << run;
    EXPECT_EQ(test::readFile(volume.backing("old")), "new");
    EXPECT_EQ(test::getXattr(volume / "old", "user.mine"), "kept");
    EXPECT_EQ(std::filesystem::last_write_time(volume / "old"), whole);
    EXPECT_TRUE(test::readFile(volume.backing("large")) == content('l', 3000000));
  }
}

TEST(TapeVolume, aBlockThatCannotBeReadEndsTheRunAndLeavesNoHalfFile) {
  const std::vector<MountedVolume::File> files = {{"first", content('1', 3 * kBlock), 'b', 100},
                                                  {"broken", content('2', 40 * kBlock), 'b', 200},
                                                  {"after", content('3', 3 * kBlock), 'b', 300}};
  struct Row {
    const char* options;
    const char* badBlock;
  };
  for (const Row& row :
       {Row{"-buffer-size=4KB", "-bad-block=b:220"}, Row{"-buffer-size=1MB", "-bad-block=b:220"},
        Row{"-buffer-size=4KB", "-bad-block=b:200"}}) {
    MountedVolume volume(files, {kSmallBlocks, row.badBlock});
    SKIP_UNLESS_MOUNTED(volume);
    const TempDir target;
    const ProgramRun run = copy(volume.path(), target.path(), {row.options});
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(text(msg::kFileReaderReadFailed, strerror(EIO))), 1) << run;
    EXPECT_EQ(run.count(text(msg::kFileWriterStatusSuccess, volume / "broken", target / "broken")), 0) << run;
    // What was read before may or may not have been written by then, but whole.
    for (const auto& entry : std::filesystem::directory_iterator(target.path())) {
      EXPECT_EQ(entry.path(), target / "first") << row.options << ' ' << row.badBlock << run;
      EXPECT_TRUE(test::readFile(entry.path()) == files[0].content) << run;
    }
  }
}

TEST(TapeVolume, positionsThatCannotBeReadCostAWarningAndTheOrder) {
  MountedVolume volume(scatteredFiles(), {kSmallBlocks, "-bad-attribute=user.ltfs.startblock"});
  SKIP_UNLESS_MOUNTED(volume);
  const TempDir target;
  const ProgramRun run = copy(volume.path(), target.path());
  EXPECT_EQ(run.status, 0) << run;
  for (const char* name : {"a", "c", "d", "e", "index"}) {
    EXPECT_EQ(
        run.count(text(msg::kAttributesUnreadable, "user.ltfs.startblock", volume / name, strerror(EIO))), 1)
        << run;
    EXPECT_EQ(run.count(text(msg::kCopyListNoPosition, name)), 1) << run;
    EXPECT_EQ(test::getXattr(target / name, "user.ltfs.softwareVendor"), "VOQ");
  }
  EXPECT_EQ(names(volume.unmount().reads), (std::vector<std::string>{"a", "c", "d", "e", "index"}));
}

TEST(TapeVolume, theVendorCheckNeedsAnEndOnAVolumeOfTheRightVendor) {
  MountedVolume volume({{"a", "tape", 'b', 1}});
  MountedVolume foreign({{"a", "tape", 'b', 1}}, {"-vendor=OTHER"});
  SKIP_UNLESS_MOUNTED(volume);
  SKIP_UNLESS_MOUNTED(foreign);
  const TempDir disk;
  disk.file("source/a", "disk");
  struct Row {
    std::string from;
    std::string to;
    bool passes;
  };
  const std::vector<Row> rows = {
      {volume.path(), disk / "from volume", true},         {disk / "source", volume / "not/yet/there", true},
      {disk / "source", disk / "neither", false},          {foreign.path(), disk / "from foreign", false},
      {disk / "source", foreign / "not/yet/there", false}, {foreign.path(), volume / "from foreign", true}};
  for (const Row& row : rows) {
    const ProgramRun run = copy(row.from, row.to);
    EXPECT_EQ(run.status, row.passes ? 0 : 1) << run;
    EXPECT_EQ(run.count(text(msg::kMainNoLtfsSide)), row.passes ? 0 : 1) << run;
    EXPECT_EQ(test::readFile(row.to + "/a"), row.passes ? test::readFile(row.from + "/a") : "") << run;
  }
}

}  // namespace
}  // namespace tamrix
