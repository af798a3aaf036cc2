// File systems that are full or read-only.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

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
    EXPECT_EQ(run.count(text(msg::kFileWriterStatusError, b, scene.destination("b"))), 1) << run;
    EXPECT_EQ(run.count(text(msg::kFileWriterDeleted, scene.destination("b"))), 1) << run;
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
  EXPECT_EQ(run.count(text(msg::kFileWriterSubdirFailed, scene.destination("sub"))), 1) << run;
}

}  // namespace
}  // namespace tamrix
