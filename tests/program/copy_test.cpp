// What is copied arrives whole, and in tape order.
#include <sys/stat.h>

#include <algorithm>
#include <list>
#include <random>
#include <tuple>

#include "tests/program/copy_scene.h"
#include "tests/support/sample_tree.h"

namespace tamrix {
namespace {

// Copies a tree of `count` files with each of the sizes and once again with -sparse.
void expectEqualCopies(std::uint64_t seed, int count, std::size_t largest,
                       const std::vector<std::vector<std::string>>& sizes) {
  const CopyScene scene;
  const test::SampleTree tree(scene.source(""), seed, count, largest);
  for (std::vector<std::string> options : sizes) {
    for (const bool sparse : {false, true}) {
      options.push_back(sparse ? "-sparse" : "-recursive");
      tree.restoreTimes();
      const mode_t umask = sparse ? 027 : 0;
      const ProgramRun run = scene.copy(options, {.umask = umask});
      EXPECT_EQ(run.status, 0) << run;
      EXPECT_EQ(run.count(text(msg::kWriterFilesCopied, count)), 1) << run;
      EXPECT_EQ(run.err.find("WARNING Error"), std::string::npos);
      EXPECT_EQ(tree.differences(scene.destination(""), umask), "") << testing::PrintToString(options);
      scene.removeCopies();
    }
  }
}

TEST(Copy, bytesTimesModesAndAttributesAreTheSourcesWhateverTheBufferSize) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  const int count = 500;  // sanitizers make a copy of many small files slow
#else
  const int count = 5000;
#endif
  expectEqualCopies(1, count, 4 << 20,
                    {{"-buffer-size=4096", "-total-buffer-size=64KB"}, {}, {"-buffer-size=8MB"}});
}

TEST(Copy, bytesArriveThroughTheSmallestBuffersAndRings) {
  expectEqualCopies(2, 100, 20000,
                    {{"-buffer-size=1B", "-total-buffer-size=300B"},
                     {"-buffer-size=7B", "-total-buffer-size=7B"},
                     {"-buffer-size=4096", "-total-buffer-size=4097"}});
}

TEST(Copy, aReadOnlyFileOfAnOrdinaryUserLosesItsAttributesWithAWarningEach) {
  // Kept: attributes are set on the finished file, which already has the source's mode.
  const CopyScene scene;
  const std::string path = scene.addSource("a");
  test::setXattr(path, "user.one", "1");
  chmod(path.c_str(), 0444);
  const ProgramRun run = scene.copy({"-loglevel=PROGRESS"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.count(text(msg::kWriteXattrFailed, "user.one")), 1) << run;
  EXPECT_EQ(run.count(text(msg::kStatusWarning, path, scene.destination("a"))), 1) << run;
  EXPECT_EQ(scene.copied(), (Contents{{"a", "new"}}));
}

TEST(Copy, existingDestinationsTakeTheContentAndKeepTheirMode) {
  const CopyScene scene;
  chmod(scene.addSource("a", "short").c_str(), 0600);
  for (const char* mode : {"-sparse=disable", "-sparse"}) {
    const std::string path = scene.addDestination("a", std::string(300000, 'x'));
    chmod(path.c_str(), 0644);
    EXPECT_EQ(scene.copy({mode}).status, 0);
    EXPECT_EQ(scene.copied(), (Contents{{"a", "short"}})) << mode;
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0644));
  }
}

TEST(Copy, runsAtTheSameTimeMakeTheSameDirectories) {
  const CopyScene scene;
  for (int round = 0; round < 40; ++round) {
    std::list<RunningProgram> programs;
    for (const std::string name : {"a", "b", "c", "d"}) {
      scene.addSource(name);
      const std::string target = scene.destination(std::to_string(round) + "/one/two/three");
      programs.emplace_back(scene.args({"-srcspec=" + name, "-dstpath=" + target}));
    }
    for (RunningProgram& program : programs) EXPECT_EQ(program.wait().status, 0) << program.wait();
  }
  EXPECT_EQ(scene.copied().size(), 40U * 8);
}

// Where a file belongs: volume, partition, block, and the name of one that has none of these.
using Place = std::tuple<std::string, int, long long, std::string>;

// Makes `count` sources: most with a position of their own, the others without, some of those empty.
std::vector<std::pair<Place, std::string>> placeFiles(const CopyScene& scene, int count) {
  std::mt19937_64 random(3);
  std::vector<std::pair<Place, std::string>> files;
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
    files.emplace_back(kind == 1 || kind == 2 ? Place{"", 0, 0, name} : previous, name);
  }
  return files;
}

TEST(Copy, filesAreReadByVolumePartitionAndBlockAfterThoseWithoutPosition) {
  const CopyScene scene;
  auto files = placeFiles(scene, 600);
  CopyScene::Pairs pairs;
  for (const auto& [place, name] : files) pairs.emplace_back(scene.source(name), scene.destination(name));
  const ProgramRun run = scene.copyBatch(pairs);
  EXPECT_EQ(run.status, 0);

  std::stable_sort(files.begin(), files.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<std::string> expected;
  for (const auto& [place, name] : files)
    expected.push_back(scene.source(name) + " to " + scene.destination(name));
  EXPECT_EQ(run.linesAfter("Copy "), expected);
}

}  // namespace
}  // namespace tamrix
