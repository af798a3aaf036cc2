// Which stages a run has, and that a buffer file changes nothing but where the buffers are.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

using test::ManagerRun;
using test::Settings;

TEST(ModuleManager, optionsDecideTheStages) {
  const std::tuple<Settings, int, bool> rows[] = {
      // options, stages, whether they write
      {{{"checksum-update", "anything"}, {"checksum", "modsum64"}}, 3, true},
      {{{"verify", "fail"}, {"checksum", "modsum64"}, {"sparse", "enable"}}, 4, true},
      {{{"audit", "files"}, {"checksum", "modsum64"}, {"sparse", "enable"}}, 3, false},
      // Neither kind of audit, and yet nothing is written: the reader passes the buffers to itself.
      {{{"audit", "other"}}, 1, false},
  };
  const std::string content = std::string(9000, '\0') + std::string(90000, 'x');
  for (const auto& [options, stages, writes] : rows) {
    // Segments of a buffer file begin at page boundaries; buffers don't.
    for (const char* size : {"1000", "4097"}) {
      const test::TempDir dir;
      dir.file("src/a", content);
      Settings settings = {{"buffer-file", dir / "buffers"}, {"buffer-size", size}};
      settings.insert(settings.end(), options.begin(), options.end());
      const ManagerRun run(dir, settings);
      EXPECT_EQ(run.log.count(msg::kBufferFileMode), 1);
      EXPECT_FALSE(std::filesystem::exists(dir / "buffers"));
      EXPECT_EQ(run.code + logger->returnCode(), 0);
      EXPECT_EQ(run.log.count(msg::kManagerStartModule, stages - 1), 1) << run.log.logText();
      EXPECT_EQ(run.log.count(msg::kManagerStartModule, stages), 0) << run.log.logText();
      EXPECT_EQ(test::readFile(dir / "dst/a"), writes ? content : "");
    }
  }
}

TEST(ModuleManager, aBufferFileThatExistsIsLeftAlone) {
  const test::TempDir dir;
  dir.file("src/a", "abc");
  const std::string theirs = dir.file("theirs", "precious");
  const ManagerRun run(dir, {{"buffer-file", theirs}});
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.log.count(msg::kBufferFileFailed, theirs, std::strerror(EEXIST)), 1) << run.log.logText();
  EXPECT_EQ(test::readFile(theirs), "precious");
  EXPECT_FALSE(std::filesystem::exists(dir / "dst"));
}

}  // namespace
}  // namespace tamrix
