// tamrix-audit as a user runs it: what it finds, stores, reports and refuses.
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

using test::TempDir;

const std::string kFirst(5000, 'a');
const std::string kSecond(5000, 'b');

std::vector<std::string> auditOf(const TempDir& dir, const std::vector<std::string>& more) {
  std::vector<std::string> args = {"-recursive", "-ignore-vendor-check", "-total-buffer-size=64KB",
                                   "-buffer-size=1KB", "-srcpath=" + (dir / "src")};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

ProgramRun audit(const TempDir& dir, const std::vector<std::string>& args, ProgramOptions options = {}) {
  options.program = TAMRIX_AUDIT_PROGRAM;
  return runProgram(auditOf(dir, args), options);
}

std::string counts(long long passed, long long failed, long long notPossible, long long notRead) {
  return text(msg::kManagerAuditCounts, passed, failed, notPossible, notRead);
}

TEST(AuditProgram, sealedFilesShowWhatHappenedToThem) {
  struct Case {
    const char* checksum;
    std::string now;  // the content after sealing
    int status;
    const char* more = "-audit=files";
  };
  std::string flipped = kFirst + kSecond;
  flipped[7777] ^= 4;
  const std::string good = "SUCCESS, \"Verify pass\"";
  const std::string bad = "ERROR, \"Verify FAIL\"";
  for (const Case& c : {Case{"modsum64", kFirst + kSecond, 0},
                        {"xxh128", kFirst + kSecond, 0, "-require-checksum"},
                        {"modsum64", flipped, 1},
                        {"xxh128", flipped, 1},
                        {"xxh128", flipped, 1, "-checksum-update=newonly"},  // is not sealed again
                        {"modsum64", kSecond + kFirst, 0},  // the order of bytes is nothing to a sum
                        {"xxh128", kSecond + kFirst, 1}}) {
    SCOPED_TRACE(std::string(c.checksum) + c.more);
    const TempDir dir;
    const std::string path = dir.file("src/f", kFirst + kSecond);
    const std::string attribute = std::string("user._ltfs.") + c.checksum;
    const std::string checksum = std::string("-checksum=") + c.checksum;
    const ProgramRun seal = audit(dir, {"-audit=files", "-checksum-update=newonly", checksum});
    EXPECT_EQ(seal.status, 0) << seal;
    EXPECT_EQ(seal.count(counts(0, 0, 1, 0)), 1) << seal;
    const std::string stored = test::getXattr(path, attribute);
    dir.file("src/f", c.now);  // in place, so that attributes stay
    const ProgramRun run = audit(dir, {"-audit=files", checksum, c.more});
    EXPECT_EQ(run.status, c.status) << run;
    EXPECT_EQ(run.count("Status-file, " + (c.status == 0 ? good : bad) + ",\"" + path + "\""), 1) << run;
    EXPECT_EQ(run.count(counts(c.status == 0 ? 1 : 0, c.status, 0, 0)), 1) << run;
    EXPECT_EQ(test::getXattr(path, attribute), stored);
  }
}

TEST(AuditProgram, storedFormsAreTheDocumentedOnes) {
  const TempDir dir;
  const std::string empty = dir.file("src/empty");
  const std::string two = dir.file("src/two", "\xFF\x2D");
  test::setXattr(two, "user._ltfs.xxh128", "");  // there, so newonly leaves it
  for (const char* checksum : {"-checksum=modsum64", "-checksum=xxh128"}) {
    const ProgramRun run = audit(dir, {"-audit=files", "-checksum-update=newonly", checksum});
    EXPECT_EQ(run.count(counts(0, 0, 2, 0)), 1) << run;
  }
  EXPECT_EQ(test::getXattr(two, "user._ltfs.modsum64"), "300");
  EXPECT_EQ(test::getXattr(two, "user._ltfs.xxh128"), "");
  EXPECT_EQ(test::getXattr(empty, "user._ltfs.modsum64"), "0");
  EXPECT_EQ(test::getXattr(empty, "user._ltfs.xxh128"), "99aa06d3014798d86001c324468d497f");
}

TEST(AuditProgram, fileThatCannotBeReadIsToldAndTheOthersAreAudited) {
  const TempDir dir;
  for (const char* name : {"src/a", "src/b", "src/c"}) dir.file(name, kFirst);
  chmod((dir / "src/b").c_str(), 0);
  const ProgramRun run = audit(dir, {"-audit=files", "-require-checksum", "-report=" + (dir / "report")});
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_EQ(run.count(counts(0, 0, 2, 1)), 1) << run;
  EXPECT_EQ(run.count(text(msg::kManagerChecksumRequired, 2, "user._ltfs.xxh128")), 1) << run;
  EXPECT_NE(test::readFile(dir / "report").find("/src/b\",\"bytes\":5000,\"result\":\"not_read\"}\n"),
            std::string::npos);
}

// Two partitions; gaps at the beginning, in the middle, none; an empty file; a name that is no UTF-8; links.
TEST(AuditProgram, tapeAuditReportsLinesFiguresAndJson) {
  const TempDir dir;
  dir.tapeFile("src/i", std::string(10, 'x'), "volume", 'a', 0);
  dir.tapeFile("src/z\xFF", std::string(1001, 'x'), "volume", 'b', 10);
  dir.tapeFile("src/m", std::string(999, 'x'), "volume", 'b', 12);
  dir.tapeFile("src/n", std::string(10, 'x'), "volume", 'b', 20);
  dir.tapeFile("src/o", "", "volume", 'b', 30);
  std::filesystem::create_symlink(dir / "src/n", dir / "src/n1");
  std::filesystem::create_hard_link(dir / "src/n", dir / "src/n2");
  test::setXattr(dir / "src", "user.ltfs.volumeBlocksize", "1000");
  const std::string path = dir / "src";
  const std::string report = dir / "report";
  const ProgramRun run =
      audit(dir, {"-map", "-report=" + report}, {.environment = {{"COLUMNS", "42"}, {"LC_ALL", "C"}}});
  EXPECT_EQ(run.status, 0) << run;
  // Kept: each further name of a file is told as a gap backwards.
  EXPECT_EQ(run.linesAfter("Audit:cpr - Gap detected - ").size(), 2U + 2U) << run;
  EXPECT_EQ(run.linesAfter("Audit:cpr - File ").size(), 7U) << run;
  EXPECT_EQ(run.count(text(msg::kManagerMapBar, 'b', "+" + std::string(39, '-'))), 1) << run;
  for (const auto& figures :
       {text(msg::kManagerMapFiles, 'a', 1, "0.000", 0), text(msg::kManagerMapGaps, 0, "0", "0", 0),
        text(msg::kManagerMapFiles, 'b', 6, "0.000", 1), text(msg::kManagerMapGaps, 2, "0.000", "0.000", 80)})
    EXPECT_EQ(run.count(figures), 1) << figures << run;
  const auto file = [&](const std::string& name, const std::string& rest) {
    return "{\"path\":\"" + path + "/" + name + rest;
  };
  const std::string json = test::readFile(report);
  for (const std::string& line :
       {file("n", "\",\"bytes\":10,\"partition\":\"b\",\"block\":20,\"blocks\":1,\"gap_before\":"),
        file("n1", "\",\"bytes\":10,\"partition\":\"b\",\"block\":20,\"blocks\":1,\"gap_before\":"),
        file("o", "\",\"bytes\":0,\"partition\":\"b\",\"block\":30,\"blocks\":0,\"gap_before\":0}\n"),
        file("z\xEF\xBF\xBD", "\",\"path_escaped\":\"" + path +
                                  "/z%FF\",\"bytes\":1001,\"partition\":\"b\",\"block\":10,"
                                  "\"blocks\":2,\"gap_before\":10}\n")})
    EXPECT_NE(json.find(line), std::string::npos) << line << json;
  EXPECT_NE(
      json.find("{\"partition\":\"b\",\"files\":6,\"bytes\":2030,\"blocks_to_end\":21,\"gaps\":2,"
                "\"gap_blocks\":17,\"largest_gap\":10,\"reclaimable_percent\":80,\"out_of_name_order\":1}"),
      std::string::npos)
      << json;
}

TEST(AuditProgram, reportsAreWholeOrNotThere) {
  const TempDir dir;
  const std::string source = dir.file("src/f", kFirst);
  std::filesystem::create_directory(dir / "out");
  dir.file("out/old", "old");
  struct Case {
    std::string report;
    int error;
    ProgramOptions options = {};
  };
  const ProgramOptions small = {.limits = {{RLIMIT_FSIZE, 20}}};
  for (const Case& c : std::vector<Case>{{dir / "out/new", EFBIG, small},
                                         {dir / "out/old", EFBIG, small},
                                         {dir / "out", EISDIR},
                                         {"/dev/full", EINVAL},
                                         {dir / "missing/new", ENOENT},
                                         {source, EEXIST}}) {
    const ProgramRun run = audit(dir, {"-audit=files", "-report=" + c.report}, c.options);
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(text(msg::kManagerReportFailed, c.report, std::strerror(c.error))), 1) << run;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "out"), {}), 1) << c.report;
    EXPECT_EQ(test::readFile(dir / "out/old"), "old");
    EXPECT_EQ(test::readFile(source), kFirst);
  }
}

// An empty volume is one all the same; what is no volume is not.
TEST(AuditProgram, nothingToAuditIsReportedAsNothing) {
  const TempDir dir;
  const std::string report = dir / "report";
  std::filesystem::create_directory(dir / "src");
  test::setXattr(dir / "src", "user.ltfs.volumeBlocksize", "1000");
  for (const std::string kind : {"tape", "files"}) {
    for (const std::string vendor : {"other", "VOQ"}) {
      std::filesystem::remove(report);
      test::setXattr(dir / "src", "user.ltfs.softwareVendor", vendor);
      const ProgramRun run =
          audit(dir, {"-audit=" + kind, "-map", "-report=" + report, "-ignore-vendor-check=disable"});
      const bool isVolume = vendor == "VOQ";
      EXPECT_EQ(run.status, isVolume ? 0 : 1) << run;
      EXPECT_EQ(run.count(text(isVolume ? msg::kCopyListNoSourceFiles : msg::kMainNoLtfsSide)), 1) << run;
      EXPECT_EQ(run.out.find("files=0, total blocks=0, used blocks=0,") != run.out.npos,
                isVolume && kind == "tape")
          << run;
      EXPECT_EQ(run.count(counts(0, 0, 0, 0)), isVolume && kind == "files" ? 1 : 0) << run;
      EXPECT_EQ(test::readFile(report).find("{\"sums\":true,\"status\":0,\"files\":0,"),
                isVolume ? 0 : std::string::npos);
    }
  }
}

TEST(AuditProgram, interruptLeavesWholeAttributesAndNoReport) {
  const TempDir dir;
  const std::string attribute = "user._ltfs.xxh128";
  const std::string first = dir.file("src/a", kFirst);
  const std::string endless = dir.file("src/b");
  std::filesystem::resize_file(endless, 1ULL << 33);
  test::setXattr(endless, attribute, "old");
  RunningProgram program(
      auditOf(dir, {"-audit=files", "-checksum-update=updateall", "-report=" + (dir / "report")}),
      {.program = TAMRIX_AUDIT_PROGRAM});
  ASSERT_TRUE(program.waitForText("Status-file"));
  program.signal(SIGINT);
  const ProgramRun& run = program.wait();
  EXPECT_EQ(run.status, 128 + SIGINT) << run;
  EXPECT_EQ(run.count(counts(0, 0, 1, 1)), 1) << run;
  EXPECT_EQ(test::getXattr(first, attribute).size(), 32U);
  EXPECT_EQ(test::getXattr(endless, attribute), "old");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1) << "src alone";
}

// A run whose log nobody reads stands still.
TEST(AuditProgram, changedWhileItIsReadIsNotSealed) {
  const TempDir dir;
  const std::string path = dir.file("src/f", std::string(1 << 20, 'x'));
  RunningProgram program(auditOf(dir, {"-audit=files", "-checksum-update=newonly", "-loglevel=DEBUG"}),
                         {.program = TAMRIX_AUDIT_PROGRAM});
  ASSERT_TRUE(program.waitForText("ms64PM:pB - Start of file"));
  std::filesystem::last_write_time(path, {});
  EXPECT_EQ(program.wait().status, 0);
  EXPECT_EQ(test::getXattr(path, "user._ltfs.xxh128"), "<none>");
}

TEST(AuditProgram, whatItCannotDoIsRefused) {
  const TempDir dir;
  const std::string path = dir.file("src/f", kFirst);
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"-audit=disk"}, text(msg::kPropertiesInvalid, "audit", "disk")},
      {{"-checksumea=user.x"}, text(msg::kPropertiesUnrecognized, "checksumea")},
      {{"-dstpath=/tmp"}, text(msg::kAuditUsageHint)},
      {{"-checksum-update=all"}, text(msg::kPropertiesInvalid, "checksum-update", "all")},
      {{"-audit=files", "-checksum=XXH128"}, text(msg::kManagerChecksumUnsupported, "XXH128")},
      {{"-audit=files", "-checksum="}, text(msg::kManagerChecksumMissing)},
      {{"-checksum-update=newonly"}, text(msg::kManagerNeedsFileAudit, "checksum-update")},
      {{"-require-checksum"}, text(msg::kManagerNeedsFileAudit, "require-checksum")},
      {{"-audit=tape"}, text(msg::kAuditNoBlockSize, dir / "src")},
      {{"-batchfile=" + dir.file("b.xml",
                                 "<tamrixspec version=\"1.0\"><params><sparse>enable</sparse></params>"
                                 "<data></data></tamrixspec>")},
       text(msg::kAuditParamHint)},
  };
  for (const auto& [args, message] : rows) {
    const ProgramRun run = audit(dir, args);
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(message), 1) << message << run;
    EXPECT_EQ(test::getXattr(path, "user._ltfs.xxh128"), "<none>");
  }
}

}  // namespace
}  // namespace tamrix
