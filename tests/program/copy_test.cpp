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

std::pair<time_t, long> toTheMicrosecond(const timespec& time) { return {time.tv_sec, time.tv_nsec / 1000}; }

// A tree of random files; the same seed makes the same tree. Files are of all sizes (most are small) with
// runs of zeros in them, have odd names in deep directories, odd modes, times before and after 1970, and user
// attributes of all sizes as far as the file system takes them.
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
    for (const File& file : files_)
      EXPECT_EQ(utimensat(AT_FDCWD, (root_ + file.name).c_str(), file.times, 0), 0) << file.name;
  }

  // Expects an equal tree at `destination`, times as of the last restoreTimes, but for set-user-ID and
  // set-group-ID bits and those of `umask`.
  void expectCopied(const std::string& destination, mode_t umask) const {
    for (const File& file : files_) {
      SCOPED_TRACE(file.name);
      const std::string source = root_ + file.name;
      const std::string copy = destination + file.name;
      struct stat status {};
      ASSERT_EQ(stat(copy.c_str(), &status), 0);  // before the content is read: that moves the access time
      EXPECT_EQ(toTheMicrosecond(status.st_atim), toTheMicrosecond(file.times[0]));
      EXPECT_EQ(toTheMicrosecond(status.st_mtim), toTheMicrosecond(file.times[1]));
      EXPECT_EQ(status.st_mode & 07777, file.mode & ~umask & 01777);
      EXPECT_TRUE(attributesOf(source) == attributesOf(copy));
      EXPECT_TRUE(test::readFile(source) == test::readFile(copy));
    }
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
    for (std::size_t at = 0; at < result.size(); at += kZeroRun)
      if (below(3) == 0) std::memset(result.data() + at, 0, std::min(kZeroRun, result.size() - at));
    return result;
  }

  std::string name() {
    static constexpr std::string_view kOdd = "-f \n\"'=\xff\xc3.*?%sn\\&;\t";
    std::string result;
    for (std::uint64_t left = below(12); left > 0; --left) result += kOdd.at(below(kOdd.size()));
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
    if (below(2) == 0) mode |= 0200;
    // Attributes can only be set on a file that its owner may write; not all file systems take the larger
    // ones.
    static constexpr std::array<std::size_t, 6> kSizes = {0, 1, 50, 300, 2000, 60000};
    for (std::uint64_t i = (mode & 0200) != 0 ? below(4) : 0; i > 0; --i) {
      const std::string value = bytes(kSizes.at(below(kSizes.size())));
      (void)setxattr(path.c_str(), ("user.\xe9" + std::to_string(i)).c_str(), value.data(), value.size(), 0);
    }
    EXPECT_EQ(chmod(path.c_str(), mode), 0) << path;
    files_.push_back({name, {time(), time()}, mode});
  }

  const std::string root_;  // ends with a slash
  std::mt19937_64 random_;
  std::vector<File> files_;
};

TEST(Copy, bytesTimesModesAndAttributesAreTheSourcesWhateverTheBufferSize) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  const int many = 500;  // sanitizers make a copy of many small files slow
#else
  const int many = 1500;
#endif
  struct Row {
    int count;
    std::size_t largest;
    const char* buffer;
    const char* total;
  };
  for (const Row& row : {Row{many, 4 << 20, "4096", "64KB"}, Row{many, 4 << 20, "512KB", "64MB"},
                         Row{many, 4 << 20, "8MB", "128MB"}, Row{100, 20000, "1B", "300B"},
                         Row{100, 20000, "7B", "7B"}, Row{100, 20000, "4096", "4097"}}) {
    const CopyScene scene;
    const SampleTree tree(scene.source(""), 1, row.count, row.largest);
    for (const bool sparse : {false, true}) {
      SCOPED_TRACE(std::string(row.buffer) + (sparse ? " sparse" : ""));
      tree.restoreTimes();
      const mode_t umask = sparse ? 027 : 0;
      const ProgramRun run = scene.copy(
          {"-recursive", sparse ? "-sparse" : "-sparse=disable", std::string("-buffer-size=") + row.buffer,
           std::string("-total-buffer-size=") + row.total},
          {.umask = umask});
      EXPECT_EQ(run.status, 0) << run;
      EXPECT_EQ(run.count(text(msg::kWriterModuleFilesCopied, row.count)), 1) << run;
      EXPECT_EQ(run.err.find("WARNING Error"), std::string::npos);
      tree.expectCopied(scene.destination(""), umask);
      scene.removeCopies();
    }
  }
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

// The hole is one buffer, at the level that tells of buffers as well.
TEST(Copy, existingDestinationsTakeTheContentAndKeepTheirMode) {
  const CopyScene scene;
  const std::string source = scene.addSource("a", "data");
  chmod(source.c_str(), 0600);
  std::filesystem::resize_file(source, 10000003);
  for (const char* mode : {"-sparse=disable", "-sparse"}) {
    const std::string path = scene.addDestination("a", std::string(10300000, 'x'));
    chmod(path.c_str(), 0644);
    const ProgramRun run = scene.copy({mode, "-buffer-size=1MB", "-loglevel=DEBUG"});
    EXPECT_EQ(run.count(text(msg::kFileWriterBuffer, source)), mode == std::string("-sparse") ? 2 : 10)
        << run;
    EXPECT_TRUE(scene.copied() == (Contents{{"a", "data" + std::string(9999999, '\0')}})) << mode;
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

TEST(Copy, filesAreReadByVolumePartitionAndBlockAfterThoseWithoutPosition) {
  const CopyScene scene;
  CopyScene::Pairs pairs;
  std::vector<std::string> expected;
  const auto add = [&](const std::string& name) {
    pairs.emplace_back(scene.addSource(name, "data"), scene.destination(name));
    expected.push_back(pairs.back().first + " to " + pairs.back().second);
    return pairs.back().first;
  };
  for (const char* name : {"1", "2", "3"}) add(name);
  int name = 1000;  // falls where blocks rise
  for (const char volume : {'a', 'b', 'c'}) {
    for (const char* partition : {"\xc3", "a", "b"}) {
      for (const char* block : {"-1000", "-7", "0", "5", "40", "300", "3000000000"}) {
        const std::string path = add(std::to_string(--name));
        test::setXattr(path, "user.ltfs.startblock", block);
        test::setXattr(path, "user.ltfs.partition", partition);
        test::setXattr(path, name % 2 == 0 ? "user.ltfs.volumeUUID" : "user.ltfs.volume_uuid",
                       std::string(36, volume));
      }
    }
  }
  std::shuffle(pairs.begin(), pairs.end(), std::mt19937_64(3));
  const ProgramRun run = scene.copyBatch(pairs);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.linesAfter("Copy "), expected);
}

}  // namespace
}  // namespace tamrix
