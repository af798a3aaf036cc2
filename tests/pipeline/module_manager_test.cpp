// Which stages a run has, what it refuses, and what is left when it could not be put together.
#include "pipeline/module_manager.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <string>

#include "tests/support/manager_run.h"

namespace tamrix {
namespace {

using test::ManagerRun;
using test::readFile;
using test::Settings;
using test::setXattr;
using test::TempDir;

// Each stage's letter (reader, checksum, sparse, writer) where it was made, and its number where it was added
// and where it was started.
std::string chainOf(const ManagerRun& run) {
  std::string chain;
  for (const std::string& line : run.log.logLines()) {
    if (line == logger->format(msg::kFrmConstructorGlobals)) chain += 'r';
    if (line == logger->format(msg::kMs64ConstructorProps)) chain += 'c';
    if (line == logger->format(msg::kSparseConstructorProps)) chain += 's';
    if (line == logger->format(msg::kFwmConstructorProps)) chain += 'w';
    for (int id = 0; id < 5; ++id) {
      if (line == logger->format(msg::kMomAddModule, id)) chain += std::to_string(id);
      if (line == logger->format(msg::kMomStartModule, id)) chain += " " + std::to_string(id);
    }
  }
  return chain;
}

bool anyStarted(const ManagerRun& run) { return run.log.count(msg::kMomStartModule, 0) != 0; }

TEST(ModuleManager, optionsDecideTheChain) {
  struct Case {
    Settings settings;
    const char* chain;
    bool copies;
  };
  const Case cases[] = {
      {{}, "r0w1 0 1", true},
      {{{"sparse", "disable"}, {"checksum", "modsum64"}}, "r0w1 0 1", true},
      {{{"verify", ""}, {"audit", ""}, {"checksum-update", ""}}, "r0w1 0 1", true},
      {{{"verify", "warn"}, {"checksum", "modsum64"}}, "r0c1w2 0 1 2", true},
      {{{"checksum-update", "anything"}, {"checksum", "modsum64"}}, "r0c1w2 0 1 2", true},
      {{{"verify", "fail"}, {"checksum", "modsum64"}, {"sparse", "enable"}}, "r0c1s2w3 0 1 2 3", true},
      {{{"sparse", "enable"}}, "r0s1w2 0 1 2", true},
      {{{"audit", "files"}, {"checksum", "modsum64"}}, "r0c1 0 1", false},
      {{{"audit", "files"}, {"checksum", "modsum64"}, {"sparse", "enable"}}, "r0c1s2 0 1 2", false},
      // Neither kind of audit, and yet nothing is written: the reader passes the buffers to itself.
      {{{"audit", "other"}}, "r0 0", false},
  };
  const std::string content = std::string(9000, '\0') + std::string(90000, 'x');
  for (const Case& c : cases) {
    for (const bool inFile : {false, true}) {
      SCOPED_TRACE(std::string(c.chain) + (inFile ? ", buffer file" : ""));
      const TempDir dir;
      dir.file("src/a", content);
      dir.file("src/b/empty");
      Settings settings = c.settings;
      if (inFile) settings.emplace_back("buffer-file", dir / "buffers");
      const ManagerRun run(dir, settings);
      EXPECT_EQ(run.log.count(msg::kBufferFileMode), inFile ? 1 : 0);
      EXPECT_FALSE(std::filesystem::exists(dir / "buffers"));
      EXPECT_EQ(run.code, 0);
      EXPECT_EQ(logger->returnCode(), 0);
      EXPECT_EQ(chainOf(run), c.chain);
      const std::string chain = c.chain;
      EXPECT_EQ(run.globals.hasWriter != 0, chain.find('w') != std::string::npos);
      EXPECT_EQ(run.globals.sparseMode != 0, chain.find('s') != std::string::npos);
      EXPECT_EQ(run.globals.hasProcessModule != 0, chain.find_first_of("cs") != std::string::npos);
      EXPECT_FALSE(run.globals.stopExecution.isSet());
      EXPECT_EQ(std::filesystem::exists(dir / "dst"), c.copies);
      if (!c.copies) continue;
      EXPECT_EQ(readFile(dir / "dst/a"), content);
      EXPECT_TRUE(std::filesystem::exists(dir / "dst/b/empty"));
      EXPECT_EQ(run.log.count(msg::kWriterFilesCopied, 2), 1);
    }
  }
}

TEST(ModuleManager, checksumStageNeedsAChecksumThatExists) {
  struct Case {
    Settings settings;
    const char* unsupported;  // null: none was given
  };
  const Case cases[] = {
      {{{"verify", "fail"}}, nullptr},
      {{{"checksum-update", "newonly"}}, nullptr},
      {{{"audit", "files"}}, nullptr},
      {{{"audit", "files"}, {"checksum", ""}}, nullptr},
      {{{"verify", "warn"}, {"checksum", "MODSUM64"}}, "MODSUM64"},
      {{{"verify", "warn"}, {"checksum", "modsum64 "}}, "modsum64 "},
  };
  for (const Case& c : cases) {
    const TempDir dir;
    dir.file("src/a", "abc");
    const ManagerRun run(dir, c.settings);
    SCOPED_TRACE(run.log.logText());
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.log.count(msg::kMomChecksumMissing), c.unsupported == nullptr ? 1 : 0);
    if (c.unsupported != nullptr) {
      EXPECT_EQ(run.log.count(msg::kMomChecksumUnsupported, c.unsupported), 1);
      EXPECT_EQ(run.log.count(msg::kPropAdd, "checksumea", std::string("user._ltfs.") + c.unsupported), 1);
    }
    EXPECT_EQ(logger->returnCode(), 1);
    EXPECT_FALSE(anyStarted(run));
    EXPECT_FALSE(std::filesystem::exists(dir / "dst"));
  }
}

TEST(ModuleManager, listOrRingThatCannotBeMadeStartsNoStage) {
  const TempDir dir;
  dir.file("src/a", "abc");
  {
    const ManagerRun run(dir, {{"srcspec", "no such file"}});
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.log.count(msg::kListNoSourceFiles), 1);
    EXPECT_EQ(run.log.count(msg::kBufferSizes, 4096, 65536), 0);
    EXPECT_FALSE(anyStarted(run));
  }
  {
    const ManagerRun run(dir, {{"buffer-size", "0"}});
    EXPECT_EQ(run.code, 1);
    EXPECT_EQ(run.log.count(msg::kBufferSizeNotPositive, 0), 1);
    EXPECT_FALSE(anyStarted(run));
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "dst"));
}

// It looks at every file below the source path, whatever was asked for, and makes no ring: sizes that no ring
// can have don't matter.
TEST(ModuleManager, tapeAuditListsAllFilesAndRunsNoPipeline) {
  const TempDir dir;
  dir.tapeFile("src/a.img", "abc", "volume", 'a', 5);
  dir.tapeFile("src/deep/b.txt", "abc", "volume", 'a', 6);
  const Settings settings = {{"audit", "tape"},        {"srcspec", "*.img"},     {"recursive", "disable"},
                             {"dstpath", dir / "src"}, {"buffer-size", "never"}, {"checksum", "none"}};
  {
    const ManagerRun run(dir, settings);
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(run.log.count(msg::kAuditNoBlockSize, dir / "src"), 1);
    EXPECT_EQ(logger->returnCode(), 1);
  }
  setXattr(dir / "src", "user.ltfs.volumeBlocksize", "524288");
  const ManagerRun run(dir, settings);
  EXPECT_EQ(run.code, 0);
  EXPECT_EQ(logger->returnCode(), 0);
  EXPECT_EQ(run.log.count(msg::kAuditFile, "File b.txt, p:a, sb:6, size:3, blocks:1, offset:0"), 1);
  EXPECT_EQ(run.log.outputCount(msg::kAuditHeader, dir / "src", 2, 2, 2, 0, 0), 1);
  EXPECT_EQ(chainOf(run), "r");
}

// Segments of the file begin at page boundaries; buffers don't.
TEST(ModuleManager, bufferFileOfAnyBufferSizeCopiesWhatMemoryCopies) {
  std::string content;
  for (int i = 0; i < 50000; ++i) content += static_cast<char>(i * 31 / 7);
  for (const char* bufferSize : {"100", "4095", "4096", "4097", "10000", "65536"}) {
    SCOPED_TRACE(bufferSize);
    const TempDir dir;
    dir.file("src/a", content);
    dir.file("src/b", content.substr(1));
    dir.file("src/c");
    const ManagerRun run(dir, {{"buffer-size", bufferSize}, {"buffer-file", dir / "buffers"}}, kInfo);
    EXPECT_EQ(run.code, 0);
    EXPECT_EQ(logger->returnCode(), 0);
    EXPECT_EQ(readFile(dir / "dst/a"), content);
    EXPECT_EQ(readFile(dir / "dst/b"), content.substr(1));
    EXPECT_TRUE(std::filesystem::exists(dir / "dst/c"));
    EXPECT_FALSE(std::filesystem::exists(dir / "buffers"));
  }
}

TEST(ModuleManager, bufferFileThatIsSomebodysIsRefusedAndLeft) {
  const TempDir dir;
  dir.file("src/a", "abc");
  const std::string theirs = dir.file("buffers", "precious");
  const ManagerRun run(dir, {{"buffer-file", theirs}});
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.log.count(msg::kBufferFileFailed, theirs, std::strerror(EEXIST)), 1);
  EXPECT_EQ(readFile(theirs), "precious");
  EXPECT_FALSE(anyStarted(run));
}

// Lowers a limit of the process while it lives.
class LoweredLimit {
 public:
  LoweredLimit(__rlimit_resource resource, rlim_t limit) : resource_(resource) {
    EXPECT_EQ(getrlimit(resource_, &before_), 0);
    const rlimit lowered = {limit, before_.rlim_max};
    EXPECT_EQ(setrlimit(resource_, &lowered), 0);
  }
  ~LoweredLimit() { setrlimit(resource_, &before_); }
  LoweredLimit(const LoweredLimit&) = delete;
  LoweredLimit& operator=(const LoweredLimit&) = delete;

 private:
  const __rlimit_resource resource_;
  rlimit before_{};
};

TEST(ModuleManager, bufferFileWithoutRoomIsToldBeforeTheCopyAndRemoved) {
  const TempDir dir;
  dir.file("src/a", "abc");
  std::signal(SIGXFSZ, SIG_IGN);
  const LoweredLimit fileSize(RLIMIT_FSIZE, 1 << 20);
  const ManagerRun run(dir, {{"buffer-file", dir / "buffers"}, {"total-buffer-size", "2MB"}});
  EXPECT_EQ(run.code, 1);
  EXPECT_EQ(run.log.count(msg::kBufferFileFailed, dir / "buffers", std::strerror(EFBIG)), 1);
  EXPECT_FALSE(std::filesystem::exists(dir / "buffers"));
  EXPECT_FALSE(anyStarted(run));
}

// Gives new threads stacks of `bytes` while it lives.
class StackSize {
 public:
  explicit StackSize(std::size_t bytes) {
    pthread_attr_t attributes;
    pthread_getattr_default_np(&attributes);
    pthread_attr_getstacksize(&attributes, &before_);
    set(bytes);
  }
  ~StackSize() { set(before_); }
  StackSize(const StackSize&) = delete;
  StackSize& operator=(const StackSize&) = delete;

 private:
  static void set(std::size_t bytes) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, bytes);
    EXPECT_EQ(pthread_setattr_default_np(&attributes), 0);
    pthread_attr_destroy(&attributes);
  }

  std::size_t before_ = 0;
};

TEST(ModuleManager, readerThatCannotBeStartedEndsTheRun) {
  const TempDir dir;
  dir.file("src/a", "abc");
  const StackSize beyondAllMemory(std::size_t{1} << 47);
  const ManagerRun run(dir, {});
  EXPECT_EQ(run.log.count(msg::kMomCannotStartModule, 0, std::strerror(EAGAIN)), 1);
  EXPECT_EQ(logger->returnCode(), 1);
  EXPECT_FALSE(std::filesystem::exists(dir / "dst"));
}

// Room for the stack of one thread, not of two.
TEST(ModuleManager, writerThatCannotBeStartedEndsTheReaderToo) {
  const TempDir dir;
  dir.file("src/a", std::string(30000, 'x'));
  std::ifstream statm("/proc/self/statm");
  rlim_t pages = 0;
  ASSERT_TRUE(statm >> pages);
  constexpr rlim_t kStack = rlim_t{1} << 30;
  const StackSize large(kStack);
  const LoweredLimit memory(RLIMIT_AS, pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + kStack * 3 / 2);
  const ManagerRun run(dir, {});
  EXPECT_EQ(run.log.count(msg::kMomStartModule, 0), 1);
  EXPECT_EQ(run.log.count(msg::kMomCannotStartModule, 1, std::strerror(EAGAIN)), 1);
  EXPECT_EQ(run.log.count(msg::kMomDeleteModule, 0), 1);
  EXPECT_TRUE(run.globals.stopExecution.isSet());
  EXPECT_EQ(logger->returnCode(), 1);
  EXPECT_FALSE(std::filesystem::exists(dir / "dst"));
}

}  // namespace
}  // namespace tamrix
