// What is copied arrives whole, and in tape order.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <list>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "log/message_ids.h"
#include "tests/program/copy_scene.h"
#include "tests/support/sample_tree.h"

namespace tamrix {
namespace {

using test::CopyScene;
using test::ProgramRun;
using test::SampleTree;
using test::text;

// Sanitizers make a copy of many small files slow.
int sampleCount() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  const int usual = 500;
#else
  const int usual = 5000;
#endif
  const char* const asked = std::getenv("TAMRIX_TEST_FILES");
  return asked != nullptr ? std::atoi(asked) : usual;
}

// Copies `tree`, the scene's source, with each of the sizes and once again with -sparse.
void expectEqualCopies(const CopyScene& scene, const SampleTree& tree,
                       const std::vector<std::vector<std::string>>& sizes) {
  int number = 0;
  for (std::vector<std::string> options : sizes) {
    for (const bool sparse : {false, true}) {
      const std::string target = scene.destination("copy " + std::to_string(++number));
      if (sparse) options.push_back("-sparse");
      options.insert(options.end(), {"-recursive", "-dstpath=" + target});
      tree.restoreTimes();
      const mode_t umask = sparse ? 027 : 0;
      const ProgramRun run = scene.copy(options, {.umask = umask});
      EXPECT_EQ(run.status, 0) << run;
      EXPECT_EQ(run.count(text(msg::kWriterFilesCopied, tree.count())), 1) << run;
      EXPECT_EQ(run.err.find("WARNING Error"), std::string::npos);
      EXPECT_EQ(tree.differences(target, umask), "") << testing::PrintToString(options);
      std::filesystem::remove_all(target);
    }
  }
}

TEST(Copy, bytesTimesModesAndAttributesAreTheSourcesWhateverTheBufferSize) {
  const CopyScene scene;
  const SampleTree tree(scene.dir() / "source", 1, sampleCount(), 4 << 20);
  expectEqualCopies(scene, tree,
                    {{"-buffer-size=4096", "-total-buffer-size=64KB"}, {}, {"-buffer-size=8MB"}});
}

TEST(Copy, bytesArriveThroughTheSmallestBuffersAndRings) {
  const CopyScene scene;
  const SampleTree tree(scene.dir() / "source", 2, 100, 20000);
  expectEqualCopies(scene, tree,
                    {{"-buffer-size=1B", "-total-buffer-size=300B"},
                     {"-buffer-size=7B", "-total-buffer-size=1000"},
                     {"-buffer-size=7B", "-total-buffer-size=7B"},
                     {"-buffer-size=4096", "-total-buffer-size=4097"}});
}

TEST(Copy, attributesBeyondOneBlockArriveWhole) {
  // Only some file systems take them; memory usually does.
  const char* const memory = "/dev/shm";
  if (access(memory, W_OK) != 0) GTEST_SKIP() << memory;
  const CopyScene scene(memory);
  const std::string value(65536, '\x80');
  const std::string path = scene.addSource("a");
  if (setxattr(path.c_str(), "user.big", value.data(), value.size(), 0) != 0)
    GTEST_SKIP() << "not taken here";
  test::setXattr(path, "user.zz", "behind it");
  EXPECT_EQ(scene.copy().status, 0);
  EXPECT_TRUE(test::getXattr(scene.destination("a"), "user.big") == value);
  EXPECT_EQ(test::getXattr(scene.destination("a"), "user.zz"), "behind it");
}

TEST(Copy, aReadOnlyFileOfAnOrdinaryUserLosesItsAttributesWithAWarningEach) {
  // Kept: attributes are set on the finished file, which already has the source's mode.
  const CopyScene scene;
  const std::string path = scene.addSource("a", "data");
  test::setXattr(path, "user.one", "1");
  chmod(path.c_str(), 0444);
  const ProgramRun run = scene.copy({"-loglevel=PROGRESS"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.count(text(msg::kWriteXattrFailed, "user.one")), 1) << run;
  EXPECT_EQ(run.count(text(msg::kStatusWarning, path, scene.destination("a"))), 1) << run;
  EXPECT_EQ(test::readFile(scene.destination("a")), "data");
}

TEST(Copy, existingDestinationsTakeTheContentAndTimesAndKeepTheirMode) {
  const CopyScene scene;
  chmod(scene.addSource("a", "short").c_str(), 0600);
  chmod(scene.addDestination("a", std::string(300000, 'x')).c_str(), 0644);
  for (const char* mode : {"-sparse=disable", "-sparse"}) {
    EXPECT_EQ(scene.copy({mode}).status, 0);
    EXPECT_EQ(scene.copied(), (std::map<std::string, std::string>{{"a", "short"}})) << mode;
    struct stat status {};
    ASSERT_EQ(stat(scene.destination("a").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644U);
  }
}

TEST(Copy, aSparseFileStaysSparseOnlyWhenAsked) {
  const CopyScene scene;
  const std::string path = scene.addLargeSource("a", 20 << 20);
  for (const bool sparse : {true, false}) {
    EXPECT_EQ(scene.copy({sparse ? "-sparse" : "-sparse=disable"}).status, 0);
    struct stat status {};
    ASSERT_EQ(stat(scene.destination("a").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 20 << 20);
    EXPECT_EQ(status.st_blocks * 512 < (1 << 20), sparse) << status.st_blocks;
    EXPECT_TRUE(test::readFile(path) == test::readFile(scene.destination("a")));
  }
}

TEST(Copy, oneSourceGoesToManyDestinations) {
  const CopyScene scene;
  const std::string path = scene.addSource("a", std::string(300000, 'a'));
  CopyScene::Pairs pairs;
  for (int i = 0; i < 20; ++i) pairs.emplace_back(path, scene.destination("a" + std::to_string(i)));
  EXPECT_EQ(scene.copyBatch(pairs).status, 0);
  const auto copied = scene.copied();
  EXPECT_EQ(copied.size(), 20U);
  for (const auto& [name, content] : copied) EXPECT_TRUE(content == test::readFile(path)) << name;
}

TEST(Copy, expressionAndBatchFileAreCopiedInOneRun) {
  const CopyScene scene;
  scene.addSource("a");
  const std::string other = scene.dir().file("other", "from the batch");
  std::vector<std::string> args = scene.batch({{other, scene.destination("b")}});
  args.insert(args.begin(),
              {"-srcpath=" + scene.source(""), "-srcspec=*", "-dstpath=" + scene.destination("")});
  const ProgramRun run = test::runProgram(args);
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(scene.copied(), (std::map<std::string, std::string>{{"a", "new"}, {"b", "from the batch"}}));
}

TEST(Copy, runsAtTheSameTimeMakeTheSameDirectories) {
  const CopyScene scene;
  for (int round = 0; round < 40; ++round) {
    std::list<test::RunningProgram> programs;
    for (const std::string name : {"a", "b", "c", "d"}) {
      scene.addSource(name);
      const std::string target = scene.destination(std::to_string(round) + "/one/two/three");
      programs.emplace_back(scene.args({"-srcspec=" + name, "-dstpath=" + target}));
    }
    for (test::RunningProgram& program : programs) EXPECT_EQ(program.wait().status, 0) << program.wait();
  }
  EXPECT_EQ(scene.copied().size(), 40U * 8);
}

// Where a file belongs: volume, partition, block, and the name of one that has none of these.
using Place = std::tuple<std::string, int, long long, std::string>;

struct Placed {
  Place place;
  std::string name;
};

// Makes `count` sources: most with a position of their own, the others without, some of those empty.
std::vector<Placed> placeFiles(const CopyScene& scene, int count) {
  std::mt19937_64 random(3);
  std::vector<Placed> files;
  Place previous;  // of the last file with a position: an empty one without goes there
  for (int i = 0; i < count; ++i) {
    const std::string name = std::to_string(random() % 100000) + "-" + std::to_string(i);
    const std::uint64_t kind = i == 0 ? 9 : random() % 10;
    const std::string path = scene.addSource(name, kind == 0 ? "" : "data");
    if (kind > 2) {
      const std::string volume(36, static_cast<char>('a' + random() % 4));
      const char partition = "ab\xc3"[random() % 3];
      const long long block = static_cast<long long>(random() % 5000) * count + i - 1000;
      test::setXattr(path, "user.ltfs.startblock", std::to_string(block));
      test::setXattr(path, "user.ltfs.partition", std::string(1, partition));
      test::setXattr(path, i % 2 == 0 ? "user.ltfs.volumeUUID" : "user.ltfs.volume_uuid", volume);
      previous = {volume, static_cast<signed char>(partition), block, ""};
    }
    const bool placeless = kind == 1 || kind == 2;
    files.push_back({placeless ? Place{"", 0, 0, name} : previous, name});
  }
  return files;
}

TEST(Copy, filesAreReadByVolumePartitionAndBlockAfterThoseWithoutPosition) {
  const CopyScene scene;
  std::vector<Placed> files = placeFiles(scene, 600);
  CopyScene::Pairs pairs;
  for (const Placed& file : files) pairs.emplace_back(scene.source(file.name), scene.destination(file.name));
  const ProgramRun run = scene.copyBatch(pairs);
  EXPECT_EQ(run.status, 0);

  std::stable_sort(files.begin(), files.end(),
                   [](const Placed& a, const Placed& b) { return a.place < b.place; });
  std::vector<std::string> expected;
  for (const Placed& file : files) {
    expected.push_back(scene.source(file.name) + " to " + scene.destination(file.name));
  }
  EXPECT_EQ(run.linesAfter("Copy "), expected);
}

}  // namespace
}  // namespace tamrix
