// tamrix-plan as a user runs it: figures, what is left to do, the batch files that a copy takes, and what it
// refuses.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

using test::TempDir;

ProgramRun plan(const std::vector<std::string>& args, ProgramOptions options = {}) {
  options.program = TAMRIX_PLAN_PROGRAM;
  return runProgram(args, options);
}

// The last line of a report.
std::string sums(const std::string& report) {
  const std::string all = test::readFile(report);
  const std::size_t end = all.rfind('\n', all.size() - 2);
  return all.substr(end == std::string::npos ? 0 : end + 1);
}

void setTime(const std::string& path, long seconds, long nanoseconds) {
  const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

TEST(PlanProgram, figuresAreThoseOfTheFiles) {
  const CopyScene scene;
  const auto add = [&](const std::string& name, std::size_t size, const char* volume, char partition,
                       long long block) {
    scene.dir().tapeFile("source/" + name, std::string(size, 'x'), volume, partition, block);
  };
  add("z", 2500, "one", 'b', 10);
  add("d/m", 1000, "one", 'b', 13);
  add("d/a", 1, "one", 'b', 1000000000);
  add("i", 5, "one", 'a', 7);
  for (int i = 0; i < 30; ++i) add("s" + std::to_string(i), 1, "two", 'b', 1 + 300000000LL * (i * 7 % 30));
  scene.addSource("disk", "1234");
  scene.addDestination("z", std::string(20000, 'x'));
  test::setXattr(scene.dir() / "source", "user.ltfs.volumeBlocksize", "1000");
  const std::string report = scene.dir() / "report";
  const ProgramRun run = plan(scene.args({"-recursive", "-drive=lto6", "-report=" + report}));
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.count(text(msg::kPlanPartition, 'b', 3, "3.50 kB", 10, 1000000000, "1.00 TB", 1, "1.00 TB")),
            1)
      << run;
  EXPECT_EQ(run.count(text(msg::kPlanWithoutPosition, 1, "4 B")), 1) << run;
  EXPECT_EQ(run.count(text(msg::kPlanCounts, 35, "3.54 kB", 1, 0, 0)), 1) << run;
  EXPECT_EQ(run.linesAfter("Plan:volumes - WARNING Files of volume two are so scattered").size(), 1U) << run;
  EXPECT_EQ(run.count(text(msg::kPlanBehindEnd, "two", "LTO-6")), 1) << run;
  EXPECT_EQ(run.linesAfter("Plan:volumes - WARNING").size(), 2U) << run;
  const std::string line = sums(report);
  for (const char* part :
       {"\"copy\":34,\"overwrite\":1,\"present\":0,\"left_out\":0,\"drive\":\"lto6\",\"without_position\":1,",
        "{\"volume\":\"one\",\"files\":4,\"bytes\":3506,\"block_size\":1000,",
        // i, z and d/a are located; d/m lies right behind z
        "\"locates\":3,",
        "{\"partition\":\"b\",\"files\":3,\"bytes\":3501,\"first_block\":10,\"last_block\":1000000000,"
        "\"gaps\":1,"
        "\"gap_blocks\":999999986}",
        "\"inodes_needed\":35,"})
    EXPECT_NE(line.find(part), std::string::npos) << part << '\n' << line;
  EXPECT_EQ(line.find("\"directory_order_seconds\":0.0"), std::string::npos) << line;  // each volume has its own
}

TEST(PlanProgram, missingIsWhatACopyWouldChangeAndNothingElse) {
  struct Case {
    const char* name;
    bool isPresent;
    bool isPresentByChecksum;
  };
  const CopyScene scene;
  const auto add = [&](const std::string& name, const char* there, long nanoseconds, const char* from,
                       const char* to) {
    const std::string source = scene.addSource(name, "content");
    const std::string destination = scene.addDestination(name, there);
    if (from != nullptr) test::setXattr(source, "user._ltfs.xxh128", from);
    if (to != nullptr) test::setXattr(destination, "user._ltfs.xxh128", to);
    setTime(source, 1000000000, 123456789);
    setTime(destination, 1000000000, nanoseconds);
  };
  add("same", "content", 123456000, "12", "12");
  add("within", "content", 123456999, "12", "12");
  add("micro", "content", 123457000, "12", "12");
  add("short", "conten", 123456000, "12", "12");
  add("other", "content", 123456000, "12", "13");
  add("longer", "content", 123456000, "12", "123");
  add("unsealed", "content", 123456000, nullptr, nullptr);
  add("lost", "content", 123456000, "12", nullptr);
  scene.addSource("new");
  const std::string rest = scene.dir() / "rest.xml";
  for (const Case& c : {Case{"same", true, true},
                        {"within", true, true},
                        {"micro", false, false},
                        {"short", false, false},
                        {"other", true, false},
                        {"longer", true, false},
                        {"unsealed", true, false},
                        {"lost", true, false},
                        {"new", false, false}}) {
    for (const bool byChecksum : {false, true}) {
      const ProgramRun run = plan(scene.args(
          {"-missing", "-output=" + rest, "-checksum=" + std::string(byChecksum ? "xxh128" : "")}));
      EXPECT_EQ(run.status, 0) << run;
      EXPECT_EQ(test::readFile(rest).find("<sf>" + std::string(c.name) + "</sf>") == std::string::npos,
                byChecksum ? c.isPresentByChecksum : c.isPresent)
          << c.name << byChecksum << run;
      EXPECT_EQ(run.count(text(msg::kPlanWithoutChecksum, 1, "user._ltfs.xxh128")), byChecksum ? 1 : 0)
          << run;
    }
  }
  EXPECT_EQ(runProgram({"-batchfile=" + rest}).status, 0);
  // Nothing is left, which tamrix takes as well.
  EXPECT_EQ(
      plan(scene.args({"-missing", "-output=" + rest})).count(text(msg::kPlanCounts, 0, "0 B", 0, 9, 0)), 1);
  EXPECT_EQ(runProgram({"-batchfile=" + rest}).status, 0);
}

// Renames, several destinations, places on two volumes and on none.
TEST(PlanProgram, aCopyByThePlanIsTheCopyThatWasPlanned) {
  CopyScene scene;
  CopyScene::Pairs pairs;
  for (int i = 0; i < 40; ++i) {
    const std::string name = "d" + std::to_string(i % 3) + "/" + std::to_string(i * 17 % 40);
    scene.dir().tapeFile("source/" + name, name, i % 2 != 0 ? "../o ne" : ".._o_ne", 'b', i * 13 % 20);
    pairs.emplace_back(scene.source(name),
                       scene.destination(i % 5 != 0 ? "t/" + name : "&quot;" + std::to_string(i)));
  }
  pairs.emplace_back(scene.addSource("none"), scene.destination("none"));
  std::vector<std::string> args = scene.batch(pairs, "<sparse>enable</sparse>");
  args.insert(args.end(),
              {"-srcspec=odd*", "-srcpath=" + scene.source(""), "-dstpath=" + scene.destination("")});
  scene.addSource("odd & <e>");
  const std::string left = scene.addSource("odd*");
  const std::string all = scene.dir() / "all.xml";
  args.insert(args.end(), {"-output=" + all, "-split=" + (scene.dir() / "split/")});
  const ProgramRun written = plan(args);
  EXPECT_EQ(written.status, 1) << written;
  EXPECT_EQ(written.linesAfter("Plan:run - ERROR A batch file cannot hold these names, left out: ").size(),
            1U);
  std::filesystem::remove(left);
  args.resize(args.size() - 2);
  const auto copied = [&](const ProgramRun& run) {
    EXPECT_EQ(run.status, 0) << run;
    std::pair<std::vector<std::string>, Contents> result = {run.linesAfter("Copy "), scene.copied()};
    scene.removeCopies();
    return result;
  };
  const auto direct = copied(runProgram(args));
  EXPECT_EQ(direct.first.size(), 42U);
  EXPECT_EQ(copied(runProgram({"-batchfile=" + all})), direct);
  EXPECT_NE(test::readFile(all).find("<sparse>enable</sparse>"), std::string::npos);
  std::vector<std::string> bySplit;
  for (const char* volume : {"no-volume", "_._o_ne", "_._o_ne-2"}) {
    const ProgramRun run =
        runProgram({"-batchfile=" + (scene.dir() / ("split/" + std::string(volume) + ".xml"))});
    EXPECT_EQ(run.status, 0) << run;
    for (const std::string& line : run.linesAfter("Copy ")) bySplit.push_back(line);
  }
  EXPECT_EQ(bySplit, direct.first);
  EXPECT_EQ(scene.copied(), direct.second);
}

TEST(PlanProgram, filesOfAPlanAreWholeOrNotThere) {
  const CopyScene scene;
  const TempDir& dir = scene.dir();
  const std::string source = scene.addSource("f");
  dir.file("out/old", "old");
  struct Case {
    std::string option;
    std::string path;
    int error;
    ProgramOptions options = {};
  };
  const ProgramOptions small = {.limits = {{RLIMIT_FSIZE, 20}}};
  for (const Case& c : std::vector<Case>{{"-output=", dir / "out/new", EFBIG, small},
                                         {"-output=", dir / "out/old", EFBIG, small},
                                         {"-output=", dir / "out", EISDIR},
                                         {"-output=", "/dev/null", EINVAL},
                                         {"-output=", dir / "missing/new", ENOENT},
                                         {"-output=", source, EEXIST},
                                         {"-split=", dir / "out", ENOTEMPTY},
                                         {"-split=", dir / "missing/new", ENOENT},
                                         {"-split=", source, ENOTDIR}}) {
    const ProgramRun run = plan(scene.args({c.option + c.path}), c.options);
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(text(msg::kPlanWriteFailed, c.path, std::strerror(c.error))), 1) << run;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "out"), {}), 1) << c.path;
    EXPECT_EQ(test::readFile(dir / "out/old") + test::readFile(source), "oldnew");
  }
  EXPECT_EQ(plan(scene.args({"-split=" + (dir / "out/split")}), small).status, 1);
  EXPECT_EQ(plan(scene.args({"-output=" + (dir / "out/x"), "-report=" + (dir / "out/x")})).status, 1);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "out"), {}), 1);
}

TEST(PlanProgram, interruptLeavesNothing) {
  const CopyScene scene;
  // More lines than the pipe holds, so that the plan is under way when the signal comes.
  for (int i = 0; i < 600; ++i) {
    const std::string name = std::string(240, 'n') + std::to_string(i);
    scene.addSource(name);
    scene.addDestination(name);
  }
  std::filesystem::create_directory(scene.dir() / "out");
  std::vector<std::string> more = {"-loglevel=PROGRESS"};
  for (const char* option : {"-output=", "-split=", "-report="})
    more.push_back(option + (scene.dir() / "out/") + option);
  RunningProgram run(scene.args(more), {.program = TAMRIX_PLAN_PROGRAM});
  ASSERT_TRUE(run.waitForText("Overwrites"));
  run.signal(SIGTERM);
  EXPECT_EQ(run.wait().status, 128 + SIGTERM);
  EXPECT_TRUE(std::filesystem::is_empty(scene.dir() / "out"));
}

TEST(PlanProgram, whatACopyWouldNotDoIsToldAndMakesTheStatus) {
  CopyScene scene;
  const std::string one = scene.addSource("one");
  const std::string two = scene.addSource("two");
  const std::string shut = scene.dir() / "target/shut";
  std::filesystem::create_directories(shut + "/is");
  chmod(scene.addDestination("held").c_str(), 0444);
  chmod(shut.c_str(), 0555);
  const std::string to = scene.destination("x");
  const auto told = [&](const std::vector<std::string>& args, const std::string& line) {
    const std::string output = scene.dir() / "plan.xml";
    std::vector<std::string> all = args;
    all.push_back("-output=" + output);
    const ProgramRun run = plan(all);
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(line), 1) << line << run;
    return std::filesystem::remove(output);
  };
  const auto accessError = std::strerror(EACCES);
  EXPECT_FALSE(told(scene.args({"-srcspec=x*"}), text(msg::kPlanNoFiles)));
  EXPECT_FALSE(told(scene.args({"-drive=lto4"}), text(msg::kPropertiesInvalid, "drive", "lto4")));
  EXPECT_FALSE(told(scene.args({"-checksum=xxh128"}), text(msg::kPlanChecksumNeedsMissing)));
  EXPECT_FALSE(
      told(scene.batch({{one, to}, {two, to}}), text(msg::kCopyListConflictSameDestination, one, two, to)));
  EXPECT_FALSE(
      told(scene.batch({{one, one}, {two, one}}), text(msg::kFileWriterIsSource, two, one, one, one)));
  EXPECT_TRUE(told(scene.batch({{one, shut + "/n/a"}, {two, shut + "/n/b"}}),
                   text(msg::kPlanDirectoryNotWritable, shut, accessError)));
  EXPECT_TRUE(told(scene.batch({{one, scene.destination("held")}}),
                   text(msg::kPlanFileNotWritable, scene.destination("held"), accessError)));
  EXPECT_TRUE(told(scene.batch({{one, shut + "/is"}}),
                   text(msg::kPlanFileNotWritable, shut + "/is", std::strerror(EISDIR))));
  CopyScene::Pairs pairs;
  for (int i = 0; i < 200; ++i) {
    const std::string name = std::to_string(i);
    std::filesystem::resize_file(scene.addSource(name), 1ULL << 43);
    pairs.emplace_back(scene.source(name), scene.destination(name));
  }
  const ProgramRun run = plan(scene.batch(pairs));
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_EQ(run.linesAfter("Plan:room - ERROR Not enough room at ").size(), 1U) << run;
  chmod(shut.c_str(), 0755);
}

}  // namespace
}  // namespace tamrix
