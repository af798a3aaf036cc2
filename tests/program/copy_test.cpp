// What is copied arrives whole, and in tape order.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <fstream>
#include <list>
#include <random>
#include <sstream>
#include <tuple>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

// By name; values may hold any bytes.
std::map<std::string, std::string> attributesOf(const std::string& path) {
  static std::array<char, 65536> names;
  std::map<std::string, std::string> attributes;
  const char* const end = names.data() + listxattr(path.c_str(), names.data(), names.size());
  for (const char* name = names.data(); name < end; name += std::strlen(name) + 1) {
    if (std::string_view(name).starts_with("user.")) attributes[name] = test::getXattr(path, name);
  }
  return attributes;
}

bool sameToTheMicrosecond(const timespec& a, const timespec& b) {
  return a.tv_sec == b.tv_sec && a.tv_nsec / 1000 == b.tv_nsec / 1000;
}

// A tree of random files; the same seed makes the same tree. Files are of all sizes (most are small) with
// runs of zeros in them, have odd names in deep directories, odd modes, times before and after 1970, user
// attributes of all sizes as far as the file system takes them, and some have a position on tape.
class SampleTree {
 public:
  // Makes `count` files below the directory `root`; the largest have about `largest` bytes.
  SampleTree(std::string root, std::uint64_t seed, int count, std::size_t largest)
      : root_(std::move(root)), random_(seed) {
    std::string directory;
    for (int i = 0; i < count; ++i) {
      // A directory holds some twenty files, with the next one in it until that gets too deep.
      if (i % 20 == 19) {
        directory = directory.size() > 300 ? "" : directory + "d'" + std::to_string(i) + " \xff/";
        std::filesystem::create_directories(root_ + directory);
      }
      addFile(directory + name(), largest);
    }
  }

  // Sets all times as they were made: reading a file moves its access time.
  void restoreTimes() const {
    for (const File& file : files_) {
      EXPECT_EQ(utimensat(AT_FDCWD, (root_ + file.name).c_str(), file.times, 0), 0) << file.name;
    }
  }

  // In what the copy at `destination` differs from the tree, times as of the last restoreTimes; a line per
  // difference, empty for none. Set-user-ID and set-group-ID bits and those of `umask` are not to be there.
  std::string differences(const std::string& destination, mode_t umask) const {
    std::ostringstream told;
    for (const File& file : files_) {
      const std::string source = root_ + file.name;
      const std::string copy = destination + file.name;
      struct stat status {};
      if (stat(copy.c_str(), &status) != 0) told << "missing: " << file.name << '\n';
      // Before the content is read: that moves the access time.
      if (!sameToTheMicrosecond(status.st_atim, file.times[0])) told << "access time: " << file.name << '\n';
      if (!sameToTheMicrosecond(status.st_mtim, file.times[1])) told << "modify time: " << file.name << '\n';
      if ((status.st_mode & 07777) != (file.mode & ~umask & 01777)) told << "mode: " << file.name << '\n';
      if (attributesOf(source) != attributesOf(copy)) told << "attributes: " << file.name << '\n';
      if (test::readFile(source) != test::readFile(copy)) told << "content: " << file.name << '\n';
    }
    return told.str();
  }

 private:
  struct File {
    std::string name;   // below the root
    timespec times[2];  // access and modification
    mode_t mode;
  };

  std::uint64_t below(std::uint64_t limit) { return random_() % limit; }

  std::string bytes(std::size_t size) {
    std::string result(size, '\0');
    for (char& byte : result) byte = static_cast<char>(random_());
    return result;
  }

  std::string content(std::size_t largest) {
    // One file in fifty may have the full size, the others are about a hundred times smaller.
    const double limit = static_cast<double>(below(50) == 0 ? largest : largest / 100 + 1);
    const double exponent = static_cast<double>(below(1000)) / 999;
    std::string result = bytes(static_cast<std::size_t>(std::pow(limit + 1, exponent)) - 1);
    constexpr std::size_t kZeroRun = 4096;
    for (std::size_t at = 0; at < result.size(); at += kZeroRun) {
      if (below(3) == 0) std::memset(result.data() + at, 0, std::min(kZeroRun, result.size() - at));
    }
    return result;
  }

  std::string name() {
    static constexpr std::array<std::string_view, 14> kPieces = {
        "file", " ", "\n", "\"", "'", "-", "--help=", "\xff\xc3", ".", "*?", "%s%n", "\\", "&lt;", "\t"};
    std::string result;
    for (std::uint64_t pieces = 1 + below(4); pieces > 0; --pieces) {
      result += kPieces.at(below(kPieces.size()));
    }
    result += std::to_string(files_.size());  // no two are the same, nor "." or ".."
    if (below(40) == 0) result.insert(0, NAME_MAX - result.size(), 'L');
    return result;
  }

  timespec time() {
    constexpr std::int64_t kFarthest = 2'000'000'000;
    return {static_cast<std::int64_t>(below(2 * kFarthest)) - kFarthest,
            static_cast<long>(below(1'000'000'000))};
  }

  void addFile(const std::string& name, std::size_t largest) {
    const std::string path = root_ + name;
    std::ofstream(path) << content(largest);
    mode_t mode = 0400 | static_cast<mode_t>(below(010000));
    if (below(2) == 0) {
      addAttributes(path);
      mode |= 0200;  // attributes can only be set on a file that its owner may write
    }
    EXPECT_EQ(chmod(path.c_str(), mode), 0) << path;
    files_.push_back({name, {time(), time()}, mode});
  }

  void addAttributes(const std::string& path) {
    if (below(2) == 0) {
      test::setXattr(path, "user.ltfs.startblock", std::to_string(below(1'000'000)));
      test::setXattr(path, "user.ltfs.partition", below(2) == 0 ? "a" : "b");
      test::setXattr(path, "user.ltfs.volumeUUID", std::string(36, static_cast<char>('0' + below(3))));
    }
    static constexpr std::array<std::size_t, 6> kSizes = {0, 1, 50, 300, 2000, 60000};
    for (std::uint64_t i = below(4); i > 0; --i) {
      const std::string name = "user.sample \xe9" + std::to_string(i);
      const std::string value = bytes(kSizes.at(below(kSizes.size())));
      // Not all file systems take the larger ones.
      (void)setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0);
    }
  }

  const std::string root_;  // ends with a slash
  std::mt19937_64 random_;
  std::vector<File> files_;
};

// Copies a tree of `count` files with each of the sizes and once again with -sparse.
void expectEqualCopies(std::uint64_t seed, int count, std::size_t largest,
                       const std::vector<std::vector<std::string>>& sizes) {
  const CopyScene scene;
  const SampleTree tree(scene.source(""), seed, count, largest);
  for (std::vector<std::string> options : sizes) {
    for (const bool sparse : {false, true}) {
      options.push_back(sparse ? "-sparse" : "-recursive");
      tree.restoreTimes();
      const mode_t umask = sparse ? 027 : 0;
      const ProgramRun run = scene.copy(options, {.umask = umask});
      EXPECT_EQ(run.status, 0) << run;
      EXPECT_EQ(run.count(text(msg::kWriterModuleFilesCopied, count)), 1) << run;
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
  const int count = 1500;
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
  EXPECT_EQ(run.count(text(msg::kFileWriterXattrFailed, "user.one")), 1) << run;
  EXPECT_EQ(run.count(text(msg::kFileWriterStatusWarning, path, scene.destination("a"))), 1) << run;
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

// At the levels that tell of buffers as well.
TEST(Copy, aHoleIsOneBuffer) {
  const CopyScene scene;
  const std::string source = scene.addSource("a", "data");
  std::filesystem::resize_file(source, 10000003);
  for (const char* level : {"PROGRESS", "DEBUG"}) {
    const ProgramRun run = scene.copy({"-sparse", "-buffer-size=128KB", "-loglevel=" + std::string(level)});
    EXPECT_EQ(run.count(text(msg::kFileWriterBuffer, source)), 2) << run;
    EXPECT_EQ(scene.copied(), (Contents{{"a", "data" + std::string(9999999, '\0')}}));
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
