// Which stages a run has, what it refuses, and what is left when it could not be put together.
#include "pipeline/run/module_manager.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

using test::ManagerRun;
using test::readFile;
using test::Settings;
using test::TempDir;

TEST(ModuleManager, optionsDecideTheStages) {
  struct Case {
    Settings options;
    int stages;
    bool writes;
  };
  const Case cases[] = {
      {{{"sparse", "disable"}, {"checksum", "modsum64"}}, 2, true},
      {{{"verify", ""}, {"audit", ""}, {"checksum-update", ""}}, 2, true},
      {{{"checksum-update", "anything"}, {"checksum", "modsum64"}}, 3, true},
      {{{"verify", "fail"}, {"checksum", "modsum64"}, {"sparse", "enable"}}, 4, true},
      {{{"sparse", "enable"}}, 3, true},
      {{{"audit", "files"}, {"checksum", "modsum64"}, {"sparse", "enable"}}, 3, false},
      // Neither kind of audit, and yet nothing is written: the reader passes the buffers to itself.
      {{{"audit", "other"}}, 1, false},
  };
  const std::string content = std::string(9000, '\0') + std::string(90000, 'x');
  for (const Case& c : cases) {
    // Segments of a buffer file begin at page boundaries; buffers don't.
    for (const char* size : {"", "1000", "4097"}) {
      SCOPED_TRACE(testing::PrintToString(c.options) + ", buffers " + size);
      const TempDir dir;
      dir.file("src/a", content);
      dir.file("src/b/empty");
      Settings settings = c.options;
      if (*size != '\0') {
        settings.insert(settings.end(), {{"buffer-file", dir / "buffers"}, {"buffer-size", size}});
      }
      const ManagerRun run(dir, settings);
      EXPECT_EQ(run.log.count(msg::kBufferFileMode), *size == '\0' ? 0 : 1);
      EXPECT_FALSE(std::filesystem::exists(dir / "buffers"));
      EXPECT_EQ(run.code + logger->returnCode(), 0);
      EXPECT_EQ(run.log.count(msg::kManagerStartModule, c.stages - 1), 1);
      EXPECT_EQ(run.log.count(msg::kManagerStartModule, c.stages), 0);
      EXPECT_EQ(std::filesystem::exists(dir / "dst/b/empty"), c.writes);
      EXPECT_EQ(readFile(dir / "dst/a"), c.writes ? content : "");
    }
  }
}

TEST(ModuleManager, whatCannotBePutTogetherStartsNoStage) {
  const TempDir dir;
  dir.file("src/a", "abc");
  const std::string theirs = dir.file("theirs", "precious");
  test::CapturedLog captured;
  const Logger& texts = captured.logger();
  const std::string missing = texts.format(msg::kManagerChecksumMissing);
  const std::pair<Settings, std::string> cases[] = {
      {{{"verify", "fail"}}, missing},
      {{{"checksum-update", "newonly"}}, missing},
      {{{"audit", "files"}, {"checksum", ""}}, missing},
      {{{"verify", "warn"}, {"checksum", "MODSUM64"}},
       texts.format(msg::kManagerChecksumUnsupported, "MODSUM64")},
      {{{"buffer-file", theirs}}, texts.format(msg::kBufferFileFailed, theirs, std::strerror(EEXIST))},
  };
  for (const auto& [settings, message] : cases) {
    const ManagerRun run(dir, settings);
    EXPECT_EQ(run.code, 1) << message;
    EXPECT_EQ(run.log.count(msg::kManagerStartModule, 0), 0) << message;
    EXPECT_NE(run.log.logText().find(message + "\n"), std::string::npos) << message << run.log.logText();
  }
  EXPECT_EQ(readFile(theirs), "precious");
  EXPECT_FALSE(std::filesystem::exists(dir / "dst"));
}

}  // namespace
}  // namespace tamrix
