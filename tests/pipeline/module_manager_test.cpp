// Which stages a run has, what it refuses, and what is left when it could not be put together.
#include "pipeline/module_manager.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

using test::ManagerRun;
using test::readFile;
using test::Settings;
using test::TempDir;

// The stages in the order of their making, and the number of each where it was started.
std::string chainOf(const ManagerRun& run) {
  const std::pair<std::string, std::string> events[] = {
      {logger->format(msg::kFrmConstructorGlobals), "r"},  {logger->format(msg::kMs64ConstructorProps), "c"},
      {logger->format(msg::kSparseConstructorProps), "s"}, {logger->format(msg::kFwmConstructorProps), "w"},
      {logger->format(msg::kMomStartModule, 0), "0"},      {logger->format(msg::kMomStartModule, 1), "1"},
      {logger->format(msg::kMomStartModule, 2), "2"},      {logger->format(msg::kMomStartModule, 3), "3"}};
  std::string chain;
  for (const std::string& line : run.log.logLines()) {
    for (const auto& [text, sign] : events) chain += line == text ? sign : "";
  }
  return chain;
}

TEST(ModuleManager, optionsDecideTheChain) {
  const std::pair<Settings, std::string> cases[] = {
      {{{"sparse", "disable"}, {"checksum", "modsum64"}}, "rw01"},
      {{{"verify", ""}, {"audit", ""}, {"checksum-update", ""}}, "rw01"},
      {{{"verify", "warn"}, {"checksum", "modsum64"}}, "rcw012"},
      {{{"checksum-update", "anything"}, {"checksum", "modsum64"}}, "rcw012"},
      {{{"verify", "fail"}, {"checksum", "modsum64"}, {"sparse", "enable"}}, "rcsw0123"},
      {{{"sparse", "enable"}}, "rsw012"},
      {{{"audit", "files"}, {"checksum", "modsum64"}}, "rc01"},
      {{{"audit", "files"}, {"checksum", "modsum64"}, {"sparse", "enable"}}, "rcs012"},
      // Neither kind of audit, and yet nothing is written: the reader passes the buffers to itself.
      {{{"audit", "other"}}, "r0"},
  };
  const std::string content = std::string(9000, '\0') + std::string(90000, 'x');
  for (const auto& [options, chain] : cases) {
    // Segments of a buffer file begin at page boundaries; buffers don't.
    for (const char* size : {"", "1000", "4097"}) {
      SCOPED_TRACE(chain + ", buffers " + size);
      const TempDir dir;
      dir.file("src/a", content);
      dir.file("src/b/empty");
      Settings settings = options;
      if (*size != '\0') {
        settings.insert(settings.end(), {{"buffer-file", dir / "buffers"}, {"buffer-size", size}});
      }
      const ManagerRun run(dir, settings);
      EXPECT_EQ(run.log.count(msg::kBufferFileMode), *size == '\0' ? 0 : 1);
      EXPECT_FALSE(std::filesystem::exists(dir / "buffers"));
      EXPECT_EQ(run.code + logger->returnCode(), 0);
      EXPECT_EQ(chainOf(run), chain);
      EXPECT_EQ(run.globals.hasWriter != 0, chain.find('w') != std::string::npos);
      EXPECT_EQ(run.globals.sparseMode != 0, chain.find('s') != std::string::npos);
      EXPECT_EQ(run.globals.hasProcessModule != 0, chain.find_first_of("cs") != std::string::npos);
      EXPECT_EQ(std::filesystem::exists(dir / "dst/b/empty"), run.globals.hasWriter != 0);
      EXPECT_EQ(readFile(dir / "dst/a"), run.globals.hasWriter != 0 ? content : "");
    }
  }
}

TEST(ModuleManager, whatCannotBePutTogetherStartsNoStage) {
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit limit{1 << 20, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  const TempDir dir;
  dir.file("src/a", "abc");
  const std::string theirs = dir.file("theirs", "precious");
  const std::string large = dir / "large";
  test::CapturedLog captured;
  const Logger& texts = captured.logger();
  const std::string missing = texts.format(msg::kMomChecksumMissing);
  const std::string exists = std::strerror(EEXIST);
  const std::pair<Settings, std::string> cases[] = {
      {{{"verify", "fail"}}, missing},
      {{{"checksum-update", "newonly"}}, missing},
      {{{"audit", "files"}, {"checksum", ""}}, missing},
      {{{"verify", "warn"}, {"checksum", "MODSUM64"}},
       texts.format(msg::kMomChecksumUnsupported, "MODSUM64")},
      {{{"srcspec", "no such file"}}, texts.format(msg::kListNoSourceFiles)},
      {{{"buffer-size", "0"}}, texts.format(msg::kBufferSizeNotPositive, 0)},
      {{{"buffer-file", theirs}}, texts.format(msg::kBufferFileFailed, theirs, exists)},
      {{{"buffer-file", large}, {"total-buffer-size", "2MB"}},
       texts.format(msg::kBufferFileFailed, large, std::strerror(EFBIG))},
  };
  for (const auto& [settings, message] : cases) {
    const ManagerRun run(dir, settings);
    EXPECT_EQ(run.code, 1) << message;
    EXPECT_NE(run.log.logText().find(message + "\n"), std::string::npos) << message << run.log.logText();
    EXPECT_EQ(run.log.count(msg::kMomStartModule, 0), 0) << message;
  }
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(readFile(theirs), "precious");
  EXPECT_FALSE(std::filesystem::exists(large));
  EXPECT_FALSE(std::filesystem::exists(dir / "dst"));
}

// It looks at every file below the source path, whatever was asked for, and makes no ring: sizes that no ring
// can have don't matter.
TEST(ModuleManager, tapeAuditListsAllFilesAndRunsNoPipeline) {
  const TempDir dir;
  dir.tapeFile("src/a.img", "abc", "volume", 'a', 5);
  dir.tapeFile("src/deep/b.txt", "abc", "volume", 'a', 6);
  test::setXattr(dir / "src", "user.ltfs.volumeBlocksize", "524288");
  const ManagerRun run(
      dir, {{"audit", "tape"}, {"srcspec", "*.img"}, {"recursive", "disable"}, {"buffer-size", "never"}});
  EXPECT_EQ(run.code + logger->returnCode(), 0);
  EXPECT_EQ(run.log.count(msg::kAuditFile, "File b.txt, p:a, sb:6, size:3, blocks:1, offset:0"), 1);
  EXPECT_EQ(chainOf(run), "r");
}

}  // namespace
}  // namespace tamrix
