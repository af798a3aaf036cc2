// Whatever name a file has as a destination, and whatever happens to names meanwhile, no other file is
// changed.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <vector>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

using test::ManagerRun;
using test::readFile;
using test::Settings;
using test::TempDir;

namespace fs = std::filesystem;
using Pairs = std::vector<std::pair<std::string, std::string>>;  // source and destination paths

const char* const kSpellings[] = {"same path",     "doubled slash", ".",          "..",        ".. missing",
                                  "symbolic link", "dangling link", "linked dir", "hard link", "bind mount"};
enum class Of { kOwnSource, kOtherSource, kOtherDestination };

class AliasScene {
 public:
  ~AliasScene() {
    if (isMounted_) umount2((dir_ / "bound").c_str(), MNT_DETACH);
  }

  const TempDir& dir() const { return dir_; }

  // Another name of the file `name` in the directory `in`; empty where there is none of this kind.
  std::string alias(const std::string& spelling, const std::string& in, const std::string& name) {
    const std::string link = dir_ / "link";
    const std::string file = in + "/" + name;
    if (spelling == "doubled slash") return in + "//" + name;
    if (spelling == ".") return in + "/./" + name;
    if (spelling == "..") {
      fs::create_directories(in + "/sub");
      return in + "/sub/../" + name;
    }
    if (spelling == ".. missing") return in + "/new/../" + name;
    if (spelling == "symbolic link") fs::create_symlink(file, link);
    if (spelling == "dangling link") fs::create_symlink(in + "/new/../" + name, link);
    if (spelling == "linked dir") fs::create_symlink(in, link);
    if (spelling == "hard link") {
      if (!fs::exists(file)) return "";
      fs::create_hard_link(file, link);
    }
    if (spelling == "bind mount") {
      fs::create_directory(dir_ / "bound");
      isMounted_ = mount(in.c_str(), (dir_ / "bound").c_str(), nullptr, MS_BIND, nullptr) == 0;
      return isMounted_ ? dir_ / ("bound/" + name) : "";
    }
    if (spelling == "linked dir") return link + "/" + name;
    return spelling == "same path" ? file : link;
  }

 private:
  TempDir dir_;
  bool isMounted_ = false;
};

// What a file must keep.
struct Kept {
  explicit Kept(const std::string& path) : content(readFile(path)), time(fs::last_write_time(path)) {}
  bool operator==(const Kept&) const = default;
  std::string content;
  fs::file_time_type time;
};

bool isReported(const ManagerRun& run, const std::string& from, const std::string& to) {
  return run.log.count(msg::kFileWriterStatusSuccess, from, to) +
             run.log.count(msg::kFileWriterStatusWarning, from, to) >
         0;
}

// Runs one cell and tells what stopped it.
std::string runCell(const std::string& spelling, Of of, bool exists, bool clashingFirst, bool checks) {
  AliasScene scene;
  const TempDir& dir = scene.dir();
  // Sources are copied in the order of their names.
  const std::string mine = dir.file(clashingFirst ? "s/1" : "s/2", "content of mine");
  const std::string other = dir.file(clashingFirst ? "s/2" : "s/1", "content of other");
  const std::string before = dir.file("s/0", "makes the missing directory");
  const std::string otherTo = of == Of::kOwnSource ? dir / "d/unrelated" : dir / "d/x";
  if (exists) dir.file("d/x", "old");
  fs::create_directories(dir / "d");
  const std::string in = dir / (of == Of::kOtherDestination ? "d" : "s");
  const std::string name = of == Of::kOwnSource     ? mine.substr(mine.size() - 1)
                           : of == Of::kOtherSource ? other.substr(other.size() - 1)
                                                    : "x";
  const std::string alias = scene.alias(spelling, in, name);
  if (alias.empty()) return "-";
  Pairs pairs = {{mine, alias}, {other, otherTo}};
  if (spelling == "dangling link") pairs.emplace_back(before, in + "/new/z");
  const std::map<std::string, Kept> sources = {
      {mine, Kept(mine)}, {other, Kept(other)}, {before, Kept(before)}};

  Settings settings = {{"srcspec", ""}, {"batchfile", dir.batchFile(pairs)}};
  if (!checks) settings.emplace_back("compare-when-listing", "disable");
  const ManagerRun run(dir, settings, kProgress);
  EXPECT_NE(run.code + logger->returnCode(), 0) << run.log.logText();
  for (const auto& [path, kept] : sources) EXPECT_TRUE(Kept(path) == kept) << path << run.log.logText();
  for (const auto& [from, to] : pairs) {
    const bool isCopied = fs::exists(to) && readFile(to) == readFile(from);
    EXPECT_TRUE(isCopied || !isReported(run, from, to)) << to << run.log.logText();
  }
  if (of != Of::kOwnSource && fs::exists(otherTo)) {
    const std::string left = readFile(otherTo);
    EXPECT_TRUE(left == "old" || left == "content of other" || left == "content of mine") << left;
  }
  return run.log.logText().find("would overwrite") != std::string::npos ? "opening" : "listing";
}

// TAMRIX_PRINT_MATRIX=1 prints which of the two comparisons each cell is stopped by; "-": no such cell.
TEST(Aliases, noNameOfAFileLetsAnotherPairOverwriteIt) {
  std::string table;
  for (const std::string spelling : kSpellings) {
    for (const auto& [of, ofText] : {std::pair(Of::kOwnSource, "own source"),
                                     {Of::kOtherSource, "another's source"},
                                     {Of::kOtherDestination, "another's destination"}}) {
      table += spelling + " of " + ofText + ":";
      for (int bits = 0; bits < 8; ++bits) {
        const bool exists = (bits & 1) != 0;
        const bool clashingFirst = (bits & 2) != 0;
        const bool checks = (bits & 4) == 0;
        const std::string what = std::string(exists ? "existing" : "missing") +
                                 (clashingFirst ? ", first" : ", second") +
                                 (checks ? "" : ", listing not comparing");
        SCOPED_TRACE(spelling + " of " + ofText + ", " + what);
        table += " [" + what + ": " + runCell(spelling, of, exists, clashingFirst, checks) + "]";
      }
      table += "\n";
    }
  }
  if (std::getenv("TAMRIX_PRINT_MATRIX") != nullptr) std::cout << table;
}

constexpr int kFiles = 16;
constexpr int kChanged = 10;  // of them: destinations that others change

// Makes, moves, removes and replaces destinations, by files of its own and by links to sources and
// destinations.
[[noreturn]] void changeNames(const TempDir& dir, unsigned seed) {
  std::mt19937 random(seed);
  const auto name = [&](const char* side, unsigned below) {
    return dir / (std::string(side) + "/f" + std::to_string(10 + random() % below));
  };
  std::error_code ignored;
  const std::string made = dir / "made";
  for (;;) {
    const std::string to = name("dst", kChanged);
    const std::string target = name(random() % 2 == 0 ? "src" : "dst", kFiles);
    switch (random() % 5) {
      case 0:
        fs::remove(to, ignored);
        continue;
      case 1:
        fs::rename(name("dst", kChanged), to, ignored);
        continue;
      case 2:
        fs::create_symlink(target, made, ignored);
        break;
      case 3:
        fs::create_hard_link(target, made, ignored);
        break;
      default:
        dir.file("made", "somebody else's");
    }
    fs::rename(made, to, ignored);
    fs::remove(made, ignored);
  }
}

TEST(Aliases, namesThatChangeDuringTheRunHurtNoSource) {
  for (unsigned round = 0; round < 200; ++round) {
    const TempDir dir;
    std::map<std::string, Kept> sources;
    for (int i = 0; i < kFiles; ++i) {
      const std::string file = "f" + std::to_string(10 + i);
      const std::string path = dir.file(
          "src/" + file, std::string(9000 + static_cast<std::size_t>(i), static_cast<char>('a' + i)));
      sources.emplace(path, Kept(path));
      if (round % 3 == 0) dir.file("dst/" + file, "old");
    }
    fs::create_directory(dir / "dst");
    const pid_t others = fork();
    ASSERT_NE(others, -1);
    if (others == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      changeNames(dir, round);
    }
    // All sources fit into the ring, so that nobody waits in it when the writer refuses a destination.
    Settings settings = {{"total-buffer-size", "1MB"}};
    if (round % 4 != 0) settings.emplace_back("compare-when-listing", "disable");
    const ManagerRun run(dir, settings, kProgress);
    kill(others, SIGKILL);
    ASSERT_EQ(waitpid(others, nullptr, 0), others);
    int i = 0;
    for (const auto& [path, kept] : sources) {
      ASSERT_TRUE(Kept(path) == kept) << path << run.log.logText();
      const std::string to = dir / ("dst/" + fs::path(path).filename().string());
      // Those that nobody else has changed are what was reported.
      if (i++ < kChanged) continue;
      const bool reported = isReported(run, path, to);
      ASSERT_TRUE(!reported || readFile(to) == kept.content) << to << run.log.logText();
      ASSERT_TRUE(reported || run.code + logger->returnCode() != 0) << to << run.log.logText();
    }
  }
}

}  // namespace
}  // namespace tamrix
