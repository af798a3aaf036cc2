// The checksum stage: what it computes, compares and stores, in a copy and in a file audit.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

using test::getXattr;
using test::ManagerRun;
using test::TempDir;

constexpr const char* kAttribute = "user._ltfs.modsum64";
constexpr const char* kNone = "<none>";

// The bytes add up to 300. A mismatch is told and ends nothing: the file behind it is audited, too.
// Kept: a copy computes, and neither compares nor stores, whatever the options say.
TEST(ChecksumStage, anAuditVerifiesAndStoresAsTheUpdateModeSaysAndACopyDoesNot) {
  const std::string tooLong(256, '3');
  const std::string pass = "Verify pass";
  const std::string fail = "Verify FAIL";
  const std::string none = "Verify not possible";
  struct Case {
    std::string update;  // the option checksum-update
    std::string stored;  // on the source before
    std::string word;    // of the status line
    std::string after;   // on the source
  };
  const Case cases[] = {
      {"", "300", pass, "300"},
      {"", "0300", fail, "0300"},
      {"newonly", " 300", fail, " 300"},
      {"updateall", "0300", fail, "300"},
      {"calconly", kNone, none, kNone},
      {"newonly", kNone, none, "300"},
      {"updateall", kNone, none, "300"},
      // Nothing that newonly may overwrite.
      {"newonly", tooLong, none, tooLong},
      {"newonly", "", none, ""},
  };
  for (const Case& c : cases) {
    for (const std::string audit : {"files", ""}) {
      SCOPED_TRACE(audit + ", " + c.update + ", stored " + c.stored);
      const TempDir dir;
      const std::string source = dir.file("src/f", "\xFF\x2D");
      const std::string next = dir.file("src/g", "\xFF\x2D");
      if (c.stored != kNone) test::setXattr(source, kAttribute, c.stored);
      test::setXattr(next, kAttribute, "300");
      const ManagerRun run(dir, {{"checksum", "modsum64"},
                                 {"audit", audit},
                                 {"checksum-update", c.update},
                                 {"verify", c.update.empty() ? "warn" : "fail"}});
      const int audits = audit.empty() ? 0 : 1;
      const int fails = c.word == fail ? audits : 0;
      EXPECT_EQ(run.code, 0);
      EXPECT_GE(logger->returnCode(), fails);
      const std::string pair = "\"" + c.word + "\",\"" + source + "\"";
      EXPECT_EQ(run.log.count(msg::kChecksumStageStatusError, pair), fails);
      EXPECT_EQ(run.log.count(msg::kChecksumStageStatusSuccess, pair), audits - fails);
      EXPECT_EQ(run.log.count(msg::kChecksumStageStatusSuccess, "\"Verify pass\",\"" + next + "\""), audits);
      EXPECT_EQ(run.log.count(msg::kChecksumStageEndOfFile), 2);
      EXPECT_EQ(getXattr(source, kAttribute), audits != 0 ? c.after : c.stored);
      EXPECT_EQ(getXattr(dir / "dst/f", kAttribute), audits != 0 ? kNone : c.stored);
    }
  }
}

TEST(ChecksumStage, sumDoesNotDependOnHowTheFileIsCutIntoBuffers) {
  std::string content;
  std::uint64_t sum = 0;
  for (int i = 0; i < 20000; ++i) {
    content += static_cast<char>(i * 7);
    sum += static_cast<unsigned char>(content.back());
  }
  for (const char* bufferSize : {"1", "7", "4096", "20000", "65536"}) {
    const TempDir dir;
    const std::string large = dir.file("src/large", content);
    ASSERT_EQ(truncate(large.c_str(), 200000), 0);  // ends in a hole
    const std::string empty = dir.file("src/empty");
    const ManagerRun run(dir,
                         {{"audit", "files"},
                          {"checksum", "modsum64"},
                          {"checksum-update", "updateall"},
                          {"sparse", "enable"},
                          {"buffer-size", bufferSize}},
                         kInfo);
    EXPECT_EQ(getXattr(large, kAttribute), std::to_string(sum)) << bufferSize;
    EXPECT_EQ(getXattr(empty, kAttribute), "0") << bufferSize;
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
  EXPECT_EQ(run.log.count(msg::kProcessModuleFailed, 2), 1);
  EXPECT_EQ(run.log.logText().find("Status-file"), std::string::npos);
}

}  // namespace
}  // namespace tamrix
