// Faults that need no help: full file systems, sources that change under the copy, limits of the process.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

// A small file system of its own in a directory; gone with it.
class SmallFileSystem {
 public:
  explicit SmallFileSystem(std::string directory, unsigned long flags = 0)
      : directory_(std::move(directory)),
        mounted_(mount("tamrix-test", directory_.c_str(), "tmpfs", flags, "size=256k") == 0) {}
  ~SmallFileSystem() {
    if (mounted_) umount2(directory_.c_str(), MNT_DETACH);
  }
  SmallFileSystem(const SmallFileSystem&) = delete;
  SmallFileSystem& operator=(const SmallFileSystem&) = delete;
  bool mounted() const { return mounted_; }

 private:
  const std::string directory_;
  const bool mounted_;
};

constexpr const char* kNoMount = "mounting a file system takes an administrator";

TEST(FullFileSystem, keepsTheFilesThatFitAndNothingOfTheOneThatDoesNot) {
  // Full in the middle, at the very last buffer, and in the middle of the only buffer.
  for (const auto& [size, bufferSize] : {std::pair(800000, "-buffer-size=16KB"),
                                         {4096 * 61 + 1, "-buffer-size=4KB"},
                                         {400000, "-buffer-size=1MB"}}) {
    const CopyScene scene;
    const std::string whole(12288, 'a');
    scene.addSource("a", whole);
    const std::string b = scene.addSource("b", std::string(static_cast<std::size_t>(size), 'b'));
    scene.addSource("c", "c");
    const SmallFileSystem target(scene.dir() / "target");
    if (!target.mounted()) GTEST_SKIP() << kNoMount;
    const ProgramRun run = scene.copy({bufferSize});
    EXPECT_EQ(run.status, 1) << run;
    EXPECT_EQ(run.count(text(msg::kStatusError, b, scene.destination("b"))), 1) << run;
    EXPECT_EQ(run.count(text(msg::kWriteDeleted, scene.destination("b"))), 1) << run;
    EXPECT_TRUE(scene.copied() == (Contents{{"a", whole}})) << run;
  }
}

TEST(ReadOnlyFileSystem, isToldAndNothingElseHappens) {
  const CopyScene scene;
  scene.addSource("sub/a");
  const SmallFileSystem target(scene.dir() / "target", MS_RDONLY);
  if (!target.mounted()) GTEST_SKIP() << kNoMount;
  const ProgramRun run = scene.copy({"-recursive"});
  EXPECT_EQ(run.status, 1) << run;
  EXPECT_EQ(run.count(text(msg::kWriteSubdirFailed, scene.destination("sub"))), 1) << run;
}

// The question about the second file holds the run between listing and reading the first.
TEST(ChangedSource, betweenListingAndReading) {
  using Path = const std::string&;
  const auto resize = [](auto size) {
    return [size](Path path) { std::filesystem::resize_file(path, size); };
  };
  struct Row {
    std::function<void(Path)> change;
    std::string message;  // empty: the run goes well
  };
  const std::string early = "ERROR Source file ended early";
  for (const Row& row : std::vector<Row>{
           {resize(3000000U), ""},
           {resize(3U), early},
           {resize(0U), early},
           {[](Path path) { unlink(path.c_str()); }, "ERROR Opening file"},
           {[](Path path) { unlink(path.c_str()), mkdir(path.c_str(), 0700); }, "ERROR Reading data"},
           {[](Path path) { unlink(path.c_str()), mkfifo(path.c_str(), 0600); }, early}}) {
    const CopyScene scene;
    const std::string first = scene.addSource("1", "as listed");
    scene.addSource("2", "new");
    scene.addDestination("2");
    RunningProgram program(
        scene.batch({{first, scene.destination("1")}, {scene.source("2"), scene.destination("2")}},
                    "<interactive>enable</interactive>"));
    ASSERT_TRUE(program.waitForText("(y/n/a) "));
    row.change(first);
    program.send("y\n");
    const ProgramRun& run = program.wait();
    const bool well = row.message.empty();
    EXPECT_EQ(run.status, well ? 0 : 1) << run;
    EXPECT_NE(run.err.find(row.message), std::string::npos) << row.message << run;
    EXPECT_EQ(scene.copied(), well ? (Contents{{"1", "as listed"}, {"2", "new"}}) : (Contents{{"2", "old"}}))
        << run;
  }
}

// Whatever a limit cuts off, the run ends, says so, and leaves whole files or none.
class Limits : public testing::Test {
 protected:
  void runUnder(__rlimit_resource resource, rlim_t limit) {
    const CopyScene scene;
    for (const char* name : {"a", "b/c/d", "e"}) scene.addSource(name, std::string(50000, *name));
    const ProgramRun run = scene.copy({"-recursive", "-buffer-size=4KB", "-total-buffer-size=64KB"},
                                      {.limits = {{resource, limit}}});
    for (const auto& [name, content] : scene.copied())
      EXPECT_TRUE(content == "<dir>" || content.size() == 50000) << name << " under " << limit << run;
    // Under a low limit on memory the program may not even be loaded.
    EXPECT_TRUE(run.status == 0 || run.status < 0 || run.status == 127 ||
                run.err.find("ERROR") != run.err.npos || run.out.find("Unable") != run.out.npos ||
                (run.out + run.err).find('-') == run.out.npos)
        << limit << run;
    noThread_ = noThread_ || run.err.find("ERROR Cannot start module") != run.err.npos;
    (run.status == 0 ? worked_ : failed_) += 1;
  }

  int worked_ = 0;
  int failed_ = 0;
  bool noThread_ = false;  // whether a run could not start a stage
};

TEST_F(Limits, onDescriptors) {
  for (rlim_t limit = 3; limit < 12; ++limit) runUnder(RLIMIT_NOFILE, limit);
  EXPECT_TRUE(worked_ > 0 && failed_ > 0);
}

TEST_F(Limits, onMemoryAndThreads) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer needs more address space than the limits leave";
#endif
  constexpr rlim_t kStep = 2 << 20;
  for (rlim_t limit = 4 * kStep; worked_ < 2 && limit < 200 * kStep; limit += kStep)
    runUnder(RLIMIT_AS, limit);
  EXPECT_TRUE(worked_ > 0 && failed_ > 0 && noThread_);
}

}  // namespace
}  // namespace tamrix
