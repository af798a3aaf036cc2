// Sources that change between listing and the last byte: what is there at the opening is copied, or nothing.
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <optional>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

using Path = const std::string&;
using Change = std::function<void(Path)>;

Change resize(std::uintmax_t size) {
  return [size](Path path) { std::filesystem::resize_file(path, size); };
}

// The question about the second file holds the run between listing and reading the first.
TEST(ChangedSource, betweenListingAndReading) {
  struct Row {
    Change change;
    std::optional<std::string> copied;  // none: the run stops
    std::string error = "WARNING Source file has changed since it was listed";
    std::string params = "";
    std::string listed = "as listed";
  };
  const std::string sparse = "<sparse>enable</sparse>";
  const std::string large = "as listed" + std::string(299991, '\0');
  const auto saveAnew = [](Path path) {
    std::ofstream(path + ".new") << "as saved";
    test::setXattr(path + ".new", "user.new", "1");
    std::filesystem::permissions(path + ".new", std::filesystem::perms(0600));
    std::filesystem::last_write_time(path + ".new", {});
    std::filesystem::rename(path + ".new", path);
  };
  const auto makeFifo = [](Path path) { unlink(path.c_str()), mkfifo(path.c_str(), 0600); };
  const std::string notRegular = "ERROR Source file is no regular file any more";
  for (const Row& row :
       std::vector<Row>{{[](Path) {}, "as listed", ""},
                        {resize(300000), large},
                        {resize(300000), large, "WARNING", sparse},
                        {resize(3), "as "},
                        {resize(0), ""},
                        {resize(0), "", "WARNING", sparse},
                        {resize(5), std::string(5, '\0'), "WARNING", "", ""},
                        {saveAnew, "as saved"},
                        {[](Path path) { unlink(path.c_str()); }, {}, "ERROR Opening file"},
                        {[](Path path) { unlink(path.c_str()), mkdir(path.c_str(), 0700); }, {}, notRegular},
                        {makeFifo, {}, notRegular},
                        {makeFifo, {}, notRegular, "", ""}}) {
    const CopyScene scene;
    const std::string first = scene.addSource("1", row.listed);
    test::setXattr(first, "user.old", "1");
    scene.addSource("2", "new");
    scene.addDestination("2");
    RunningProgram program(
        scene.batch({{first, scene.destination("1")}, {scene.source("2"), scene.destination("2")}},
                    row.params + "<interactive>enable</interactive>"));
    ASSERT_TRUE(program.waitForText("(y/n/a) "));
    row.change(first);
    program.send("y\n");
    const ProgramRun& run = program.wait();
    EXPECT_EQ(run.status, row.copied ? 0 : 1) << run;
    EXPECT_NE(run.err.find(row.error), std::string::npos) << row.error << run;
    EXPECT_EQ(run.err.find("WARNING Source") == std::string::npos, row.error.find("WARNING") != 0) << run;
    if (!row.copied) {
      EXPECT_NE(run.err.find(first), std::string::npos) << run;
      EXPECT_EQ(run.count(text(msg::kMainFilesNotCopied, 0, 2)), 1) << run;
      EXPECT_EQ(scene.copied(), (Contents{{"2", "old"}})) << run;
      continue;
    }
    EXPECT_EQ(scene.copied(), (Contents{{"1", *row.copied}, {"2", "new"}})) << run;
    const std::string copy = scene.destination("1");
    const auto apart = std::filesystem::last_write_time(first) - std::filesystem::last_write_time(copy);
    EXPECT_LT(std::chrono::abs(apart), std::chrono::microseconds(1)) << run;
    EXPECT_EQ(std::filesystem::status(copy).permissions(), std::filesystem::status(first).permissions());
    for (const char* name : {"user.old", "user.new"})
      EXPECT_EQ(getxattr(copy.c_str(), name, nullptr, 0), getxattr(first.c_str(), name, nullptr, 0)) << name;
  }
}

// A run whose log nobody reads stands still: far from the end of this file, since every buffer has its lines.
TEST(ChangedSource, whileItIsRead) {
  struct Row {
    Change change;
    std::string message;
    bool copied;
    const char* sparse = "-sparse=disable";
  };
  const std::size_t data = 1 << 20;
  const std::string changed = "WARNING Source file has changed while it was copied";
  const std::string early = "ERROR Source file ended early";
  const auto touch = [](Path path) { std::filesystem::last_write_time(path, {}); };
  for (const Row& row : std::vector<Row>{{[](Path) {}, "", true},
                                         {touch, changed, true},
                                         {touch, changed, true, "-sparse"},
                                         {resize(3 * data), changed, true},
                                         {resize(data), early, false},
                                         // Cut where the hole was.
                                         {resize(data + 5000), early, false, "-sparse"}}) {
    const CopyScene scene;
    const std::string content = std::string(data, 'x') + std::string(data, '\0');
    const std::string source = scene.addSource("a", std::string(data, 'x'));
    resize(2 * data)(source);
    const std::vector<std::string> args =
        scene.args({"-loglevel=DEBUG", "-buffer-size=4KB", "-total-buffer-size=16KB", row.sparse});
    RunningProgram program(args);
    ASSERT_TRUE(program.waitForText("\nCopy " + source));
    row.change(source);
    const ProgramRun& run = program.wait();
    EXPECT_EQ(run.status, row.copied ? 0 : 1);
    EXPECT_EQ(run.err.find(changed) != run.err.npos, row.message == changed);
    EXPECT_EQ(run.err.find(early) != run.err.npos, row.message == early);
    EXPECT_TRUE(scene.copied() == (row.copied ? Contents{{"a", content}} : Contents{}));
    const auto status = !row.copied           ? msg::kFileWriterStatusError
                        : row.message.empty() ? msg::kFileWriterStatusSuccess
                                              : msg::kFileWriterStatusWarning;
    EXPECT_EQ(run.count(text(status, source, scene.destination("a"))), 1) << row.message;
  }
}

}  // namespace
}  // namespace tamrix
