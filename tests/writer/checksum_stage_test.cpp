// The checksum stage: what an audit of files computes, compares and stores.
#include <gtest/gtest.h>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

using test::getXattr;
using test::ManagerRun;
using test::TempDir;

constexpr const char* kAttribute = "user._ltfs.modsum64";
constexpr const char* kNone = "<none>";

// The bytes add up to 300, each in a buffer of its own. Kept: a copy computes, and neither compares nor
// stores, whatever the options say.
TEST(ChecksumStage, anAuditVerifiesAndStoresAsTheUpdateModeSaysAndACopyDoesNot) {
  const std::string tooLong(256, '3');
  const std::string rows[][4] = {
      // checksum-update, stored before, word of the status line, stored afterwards
      {"", "300", "Verify pass", "300"},
      {"", "0300", "Verify FAIL", "0300"},
      {"newonly", " 300", "Verify FAIL", " 300"},
      {"updateall", "0300", "Verify FAIL", "300"},
      {"calconly", kNone, "Verify not possible", kNone},
      {"updateall", kNone, "Verify not possible", "300"},
      {"newonly", tooLong, "Verify not possible", tooLong},
  };
  for (const auto& [update, stored, word, after] : rows) {
    for (const std::string audit : {"files", ""}) {
      const TempDir dir;
      const std::string source = dir.file("src/f", "\xFF\x2D");
      if (stored != kNone) test::setXattr(source, kAttribute, stored);
      const ManagerRun run(dir, {{"checksum", "modsum64"},
                                 {"audit", audit},
                                 {"checksum-update", update},
                                 {"buffer-size", "1"},
                                 {"verify", update.empty() ? "warn" : "fail"}});
      EXPECT_EQ(run.code, 0);
      const auto kind =
          word == "Verify FAIL" ? msg::kChecksumStageStatusError : msg::kChecksumStageStatusSuccess;
      EXPECT_EQ(run.log.count(kind, "\"" + word + "\",\"" + source + "\""), audit.empty() ? 0 : 1)
          << run.log.logText();
      EXPECT_EQ(getXattr(source, kAttribute), audit.empty() ? stored : after) << update << audit;
      EXPECT_EQ(getXattr(dir / "dst/f", kAttribute), audit.empty() ? stored : kNone);
    }
  }
}

// Files of the process file system take no attributes.
TEST(ChecksumStage, sourceThatTakesNoAttributeEndsTheRunWithoutAStatusLine) {
  const ManagerRun run(TempDir(), {{"srcpath", "/proc/self"},
                                   {"srcspec", "comm"},
                                   {"audit", "files"},
                                   {"recursive", "disable"},
                                   {"checksum", "modsum64"},
                                   {"checksum-update", "newonly"}});
  EXPECT_EQ(run.log.count(msg::kModuleChecksumUpdateFailed, kAttribute), 1);
  EXPECT_NE(run.log.logText().find("Checksum of /proc/self/comm is not stored - "), std::string::npos);
  EXPECT_EQ(run.log.count(msg::kProcessModuleFailed, 2), 1);
  EXPECT_EQ(run.log.logText().find("Status-file"), std::string::npos);
}

}  // namespace
}  // namespace tamrix
