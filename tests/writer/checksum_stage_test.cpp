// The checksum stage: what it computes, compares and stores, in a copy and in a file audit.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

using test::getXattr;
using test::ManagerRun;
using test::readFile;
using test::setXattr;
using test::TempDir;

constexpr const char* kAttribute = "user._ltfs.modsum64";
constexpr const char* kNone = "<none>";

// The bytes add up to 300.
const std::string kThreeHundred = "\xFF\x2D";

TEST(ChecksumStage, fileAuditVerifiesAndStoresAsTheUpdateModeSays) {
  const std::string tooLong(256, '3');
  struct Case {
    const char* update;  // the option checksum-update
    std::string stored;  // on the source before
    const char* word;    // of the status line
    bool failed;
    std::string after;  // on the source
  };
  const Case cases[] = {
      {"", "300", "Verify pass", false, "300"},
      {"calconly", "300", "Verify pass", false, "300"},
      {"newonly", "300", "Verify pass", false, "300"},
      {"updateall", "300", "Verify pass", false, "300"},

      {"", "0300", "Verify FAIL", true, "0300"},
      {"calconly", "301", "Verify FAIL", true, "301"},
      {"newonly", " 300", "Verify FAIL", true, " 300"},
      {"updateall", "0300", "Verify FAIL", true, "300"},

      {"", kNone, "Verify not possible", false, kNone},
      {"calconly", kNone, "Verify not possible", false, kNone},
      {"newonly", kNone, "Verify not possible", false, "300"},
      {"updateall", kNone, "Verify not possible", false, "300"},

      // Not a mode: nothing is stored.
      {"UPDATEALL", "301", "Verify FAIL", true, "301"},
      // Nothing that newonly may overwrite.
      {"newonly", tooLong, "Verify not possible", false, tooLong},
      {"newonly", "", "Verify not possible", false, ""},
      {"updateall", tooLong, "Verify not possible", false, "300"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.update) + ", stored " + c.stored);
    const TempDir dir;
    const std::string source = dir.file("src/f", kThreeHundred);
    if (c.stored != kNone) setXattr(source, kAttribute, c.stored);
    const ManagerRun run(dir, {{"audit", "files"}, {"checksum", "modsum64"}, {"checksum-update", c.update}});
    EXPECT_EQ(run.code, 0);
    const std::string pair = std::string("\"") + c.word + "\",\"" + source + "\"";
    EXPECT_EQ(run.log.count(msg::kMs64StatusError, pair), c.failed ? 1 : 0);
    EXPECT_EQ(run.log.count(msg::kMs64StatusSuccess, pair), c.failed ? 0 : 1);
    EXPECT_EQ(run.log.count(msg::kMs64Fail), c.failed ? 1 : 0);
    EXPECT_EQ(getXattr(source, kAttribute), c.after);
    EXPECT_EQ(readFile(source), kThreeHundred);
    EXPECT_FALSE(std::filesystem::exists(dir / "dst"));
  }
}

// A mismatch is told and ends nothing, whichever way of verifying was asked for; the run ends with a code.
TEST(ChecksumStage, mismatchDoesNotKeepTheOtherFilesFromBeingAudited) {
  for (const char* verify : {"fail", "warn"}) {
    const TempDir dir;
    for (const char* name : {"a", "b", "c"}) {
      const std::string source =
          dir.tapeFile(std::string("src/") + name, kThreeHundred, "volume", 'b', *name);
      setXattr(source, kAttribute, *name == 'b' ? "1" : "300");
    }
    const ManagerRun run(dir, {{"audit", "files"}, {"checksum", "modsum64"}, {"verify", verify}}, kInfo);
    EXPECT_EQ(run.log.logLines(), (std::vector<std::string>{
                                      "ms64PM:pB - Verification passed",
                                      "Status-file, SUCCESS, \"Verify pass\",\"" + (dir / "src/a") + "\"",
                                      "ms64PM:pB - WARNING Checksum FAIL",
                                      "Status-file, ERROR, \"Verify FAIL\",\"" + (dir / "src/b") + "\"",
                                      "ms64PM:pB - Verification passed",
                                      "Status-file, SUCCESS, \"Verify pass\",\"" + (dir / "src/c") + "\"",
                                  }));
    EXPECT_EQ(logger->returnCode(), 1);
  }
}

TEST(ChecksumStage, sumDoesNotDependOnHowTheFileIsCutIntoBuffers) {
  std::string content;
  for (int i = 0; i < 20000; ++i) content += static_cast<char>(i * 7);
  std::uint64_t sum = 0;
  for (const char c : content) sum += static_cast<unsigned char>(c);
  const std::pair<std::string, std::string> files[] = {
      {"", "0"}, {"\xFF", "255"}, {content, std::to_string(sum)}};
  for (const char* bufferSize : {"1", "7", "4096", "20000", "65536"}) {
    SCOPED_TRACE(bufferSize);
    const TempDir dir;
    int number = 0;
    for (const auto& file : files) dir.file("src/" + std::to_string(number++), file.first);
    const ManagerRun run(dir,
                         {{"audit", "files"},
                          {"checksum", "modsum64"},
                          {"checksum-update", "updateall"},
                          {"buffer-size", bufferSize}},
                         kInfo);
    number = 0;
    for (const auto& file : files) {
      EXPECT_EQ(getXattr(dir / ("src/" + std::to_string(number++)), kAttribute), file.second);
    }
  }
}

// Kept: a copy computes, and neither compares nor stores, whatever the options say.
TEST(ChecksumStage, copyReportsAndStoresNothing) {
  const TempDir dir;
  setXattr(dir.file("src/a", kThreeHundred), kAttribute, "1");
  dir.file("src/b", kThreeHundred);
  const ManagerRun run(dir, {{"checksum", "modsum64"}, {"checksum-update", "updateall"}, {"verify", "fail"}});
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(logger->returnCode(), 0);
  for (const char* tree : {"src/", "dst/"}) {
    EXPECT_EQ(getXattr(dir / (std::string(tree) + "a"), kAttribute), "1");
    EXPECT_EQ(getXattr(dir / (std::string(tree) + "b"), kAttribute), kNone);
  }
  EXPECT_EQ(run.log.count(msg::kMs64EndOfFile), 2);
  EXPECT_EQ(run.log.count(msg::kChecksumCalculated, "300"), 0);
  EXPECT_EQ(run.log.count(msg::kStatusSuccess, dir / "src/a", dir / "dst/a"), 1);
}

// Files of the process file system take no attributes.
TEST(ChecksumStage, sourceThatTakesNoAttributeEndsTheRunWithoutAStatusLine) {
  const TempDir dir;
  const ManagerRun run(dir, {{"srcpath", "/proc/self"},
                             {"srcspec", "comm"},
                             {"recursive", "disable"},
                             {"audit", "files"},
                             {"checksum", "modsum64"},
                             {"checksum-update", "newonly"}});
  EXPECT_EQ(run.log.count(msg::kChecksumUpdateFailed, kAttribute), 1);
  EXPECT_EQ(run.log.count(msg::kProcessFailed, 2), 1);
  EXPECT_EQ(run.log.count(msg::kMs64StatusSuccess, "\"Verify not possible\",\"/proc/self/comm\""), 0);
  EXPECT_TRUE(run.globals.stopExecution.isSet());
}

// The manager's attempt to name the attribute is refused, so the first file that ends stops the run; what the
// writer has of it by then is taken back.
TEST(ChecksumStage, storeThatKnowsNoAttributeNameStopsTheCopy) {
  const TempDir dir;
  dir.file("src/f", std::string(40000, 'x'));
  const ManagerRun run(dir, {{"checksum", "modsum64"}, {"verify", "warn"}}, kProgress, "checksumea");
  EXPECT_EQ(run.log.count(msg::kPropInvalid, "checksumea", kAttribute), 1);
  EXPECT_EQ(run.log.count(msg::kMs64NoName), 1);
  EXPECT_EQ(run.log.count(msg::kProcessFailed, 1), 1);
  EXPECT_EQ(run.log.count(msg::kStatusSuccess, dir / "src/f", dir / "dst/f"), 0);
  EXPECT_FALSE(std::filesystem::exists(dir / "dst/f"));
  EXPECT_EQ(logger->returnCode(), 1);
}

}  // namespace
}  // namespace tamrix
