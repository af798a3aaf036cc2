// What the program refuses: each with its message, status 1, and a destination that stays as it was.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "log/message_ids.h"
#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

using test::CopyScene;
using test::ProgramOptions;
using test::ProgramRun;
using test::text;

// Whether a refused run got as far as the pipeline, which ends with a line of its own.
enum class Ended { kInConfiguration, kInRun };

void expectRefused(const CopyScene& scene, const std::vector<std::string>& args,
                   const std::vector<std::string>& messages, Ended ended,
                   const ProgramOptions& options = {}) {
  const auto before = scene.copied();
  const ProgramRun run = runProgram(args, options);
  EXPECT_EQ(run.status, 1) << testing::PrintToString(args) << run;
  for (const std::string& message : messages) EXPECT_EQ(run.count(message), 1) << message << run;
  EXPECT_EQ(run.count(text(msg::kMainEnded, 1)), ended == Ended::kInRun ? 1 : 0) << run;
  EXPECT_EQ(run.linesAfter("Copy ").size(), 0U) << run;
  EXPECT_EQ(scene.copied(), before) << testing::PrintToString(args) << run;
}

struct Row {
  std::vector<std::string> options;
  std::vector<std::string> messages;
};

TEST(Refusal, optionsThatDoNotExistOrTakeOtherValues) {
  CopyScene scene;
  scene.addSource("a");
  scene.addDestination("a");
  const std::string n99(99, 'n');
  const std::string n100(100, 'n');
  const std::string hint = text(msg::kPropArgHint);
  const std::vector<Row> rows = {
      {{"-nosuch=1"},
       {text(msg::kPropUnrecognized, "nosuch"), text(msg::kPropArgRefused, "nosuch", "1"), hint}},
      {{"-nosuch"}, {text(msg::kPropArgRefused, "nosuch", ""), hint}},
      {{"-srcpath"}, {text(msg::kPropArgRefused, "srcpath", ""), hint}},
      {{"-Recursive"}, {text(msg::kPropArgRefused, "Recursive", ""), hint}},
      {{"-recursive="},
       {text(msg::kPropInvalid, "recursive", ""), text(msg::kPropArgRefused, "recursive", "")}},
      {{"-Sparse=Enable"},
       {text(msg::kPropInvalid, "sparse", "Enable"), text(msg::kPropArgRefused, "Sparse", "Enable")}},
      {{"-loglevel=debug"},
       {text(msg::kPropInvalid, "loglevel", "debug"), text(msg::kPropArgRefused, "loglevel", "debug")}},
      {{"-verify=warn"}, {text(msg::kPropUnrecognized, "verify"), hint}},
      {{"--srcpath=/x"}, {text(msg::kPropUnrecognized, "-srcpath"), hint}},
      {{"-" + n99 + "=1"}, {text(msg::kPropUnrecognized, n99), hint}},
      {{"-" + n100 + "=1"}, {text(msg::kPropNameTooLong, n100, 99), hint}},
  };
  for (const Row& row : rows)
    expectRefused(scene, scene.args(row.options), row.messages, Ended::kInConfiguration);
}

TEST(Refusal, sizesThatMakeNoRing) {
  CopyScene scene;
  scene.addSource("a");
  scene.addDestination("a");
  const auto total = [](const std::string& size) { return "-total-buffer-size=" + size; };
  const auto buffer = [](const std::string& size) { return "-buffer-size=" + size; };
  constexpr long long kMb = 1 << 20;
  const std::vector<Row> rows = {
      {{total("abc")}, {text(msg::kSizeNotNumeric, "abc")}},
      {{total("")}, {text(msg::kSizeNotNumeric, "")}},
      {{buffer("-kb")}, {text(msg::kSizeNotNumeric, "kb")}},
      {{buffer("128kb")}, {text(msg::kSizeUnknownUnit, "kb")}},
      {{buffer("128 KB")}, {text(msg::kSizeUnknownUnit, " KB")}},
      {{buffer("1.5MB")}, {text(msg::kSizeUnknownUnit, ".5MB")}},
      {{total("2TB")}, {text(msg::kSizeUnknownUnit, "TB")}},
      {{total("0")}, {text(msg::kBufferTotalNotPositive, 0)}},
      {{total("-5MB")}, {text(msg::kBufferTotalNotPositive, -5 * kMb)}},
      {{total("4097MB")}, {text(msg::kBufferTotalTooLarge, 4097 * kMb)}},
      {{total("99999999999999999999GB")}, {text(msg::kBufferTotalTooLarge, 9223372036854775807LL)}},
      {{buffer("0B")}, {text(msg::kBufferSizeNotPositive, 0)}},
      {{buffer("-1K")}, {text(msg::kBufferSizeNotPositive, -1024)}},
      {{buffer("1025MB")}, {text(msg::kBufferSizeTooLarge, 1025 * kMb)}},
      {{buffer("2MB"), total("1MB")}, {text(msg::kBufferSizeOverTotal, 2 << 20, kMb)}},
      {{buffer("1B"), total("4GB")},
       {text(msg::kBufferManyBuffers, 2147483647),
        text(msg::kBufferCannotCreate, 2147483647, strerror(ENOMEM))}},
  };
  for (const Row& row : rows) expectRefused(scene, scene.args(row.options), row.messages, Ended::kInRun);
}

TEST(Refusal, aTotalSizeThatTheSystemDoesNotGive) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's own memory passes every limit";
#endif
  CopyScene scene;
  scene.addSource("a");
  expectRefused(scene, scene.args({"-total-buffer-size=4GB"}), {text(msg::kBufferNoMemory)}, Ended::kInRun,
                {.limits = {{RLIMIT_AS, 1 << 30}}});
}

TEST(Refusal, sourcesThatAreNotThere) {
  CopyScene scene;
  scene.addDestination("a");
  const std::string missing = scene.dir() / "missing";
  const std::string notFound = strerror(ENOENT);
  expectRefused(scene, scene.args({"-ignore-vendor-check=disable"}), {text(msg::kMainNoLtfsSide)},
                Ended::kInRun);
  scene.addSource("a");
  expectRefused(scene, scene.args({"-ignore-vendor-check=disable"}), {text(msg::kMainNoLtfsSide)},
                Ended::kInRun);
  expectRefused(scene, scene.args({"-srcpath=" + missing}),
                {text(msg::kListerCannotOpen, missing, notFound), text(msg::kListNoSourceFiles)},
                Ended::kInRun);
  expectRefused(scene, scene.batch({{missing, scene.destination("a")}}),
                {text(msg::kListStatFailed, missing), text(msg::kListNoSourceFiles)}, Ended::kInRun);
  expectRefused(scene, scene.args({"-srcpath=" + scene.source("a")}),
                {text(msg::kListerCannotOpen, scene.source("a"), strerror(ENOTDIR))}, Ended::kInRun);
  chmod(scene.source("a").c_str(), 0);
  const std::string denied = strerror(EACCES);
  expectRefused(scene, scene.args(), {text(msg::kFrmOpenFailed, scene.source("a"), denied)}, Ended::kInRun);
  chmod(scene.source("").c_str(), 0);
  expectRefused(scene, scene.args(), {text(msg::kListerCannotOpen, scene.dir() / "source", denied)},
                Ended::kInRun);
  chmod(scene.source("").c_str(), 0700);
}

TEST(Refusal, noMatchingFileIsAWarningWhenNoVendorIsAskedFor) {
  CopyScene scene;
  scene.addSource("a");
  const ProgramRun run = scene.copy({"-srcspec=*.nil"});
  EXPECT_EQ(run.status, 0) << run;
  EXPECT_EQ(run.count(text(msg::kListNoSourceFiles)), 1) << run;
  EXPECT_TRUE(scene.copied().empty());
}

TEST(Refusal, pairsThatCannotBeCopiedTogether) {
  CopyScene scene;
  const std::string a = scene.addSource("a");
  const std::string b = scene.addSource("b");
  const std::string x = scene.addDestination("x");
  const std::string y = scene.destination("y");
  const std::string doubled = scene.dir().path() + "//target/./y";
  struct PairsRow {
    CopyScene::Pairs pairs;
    std::string message;
  };
  const std::vector<PairsRow> rows = {
      {{{a, x}, {x, y}}, text(msg::kListConflictChain, a, x, y)},
      {{{x, y}, {a, x}}, text(msg::kListConflictChain, a, x, y)},
      {{{a, x}, {b, x}}, text(msg::kListConflictSameDestination, a, b, x)},
      {{{a, y}, {b, y}}, text(msg::kListConflictSameDestination, a, b, y)},
      {{{a, y}, {b, doubled}}, text(msg::kListConflictSameDestination, a, b, doubled)},
      {{{a, b}, {b, a}}, text(msg::kListConflictChain, a, b, a)},
  };
  for (const PairsRow& row : rows) expectRefused(scene, scene.batch(row.pairs), {row.message}, Ended::kInRun);
}

TEST(Refusal, pathsBeyond1024CharactersAndOnlyThose) {
  CopyScene scene;
  scene.addSource("a");
  // A directory path whose file "a" has a path of `length` characters.
  const auto directory = [&](const std::string& base, std::size_t length) {
    std::string path = base;
    while (path.size() + 202 < length) path += "/" + std::string(99, 'd');
    return path + "/" + std::string(length - path.size() - 3, 'e');
  };
  const std::string message = text(msg::kSpecListerPathTooLong, 1026);
  for (const char* side : {"source", "target"}) {
    const bool isSource = side == std::string("source");
    const std::string option = isSource ? "-srcpath=" : "-dstpath=";
    for (const std::size_t length : {1024U, 1025U}) {
      const std::string path = directory(scene.dir() / side, length);
      ASSERT_EQ((path + "/a").size(), length);
      if (isSource) {
        std::filesystem::create_directories(path);
        std::ofstream(path + "/a") << "deep";
      }
      if (length == 1024) {
        EXPECT_EQ(scene.copy({option + path}).status, 0);
      } else {
        expectRefused(scene, scene.args({option + path}), {message}, Ended::kInRun);
        const std::string from = isSource ? path + "/a" : scene.source("a");
        const std::string to = isSource ? scene.destination("a") : path + "/a";
        expectRefused(scene, scene.batch({{from, to}}), {message}, Ended::kInRun);
      }
    }
  }
}

TEST(Refusal, pathsRelativeToNothing) {
  CopyScene scene;
  scene.addSource("a");
  const std::string home = scene.dir().path();
  expectRefused(scene, scene.args({"-srcpath=~/source"}), {text(msg::kSpecListerRelativePath, "./source/a")},
                Ended::kInRun, {.workingDirectory = home, .environment = {{"HOME", "."}}});
  expectRefused(scene, scene.args({"-dstpath=~/x"}), {text(msg::kPropHomeNotSet, "~/x")},
                Ended::kInConfiguration, {.environment = {{"HOME", std::nullopt}}});
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::create_directory(scene.dir() / "gone");
  std::filesystem::current_path(scene.dir() / "gone");
  std::filesystem::remove(scene.dir() / "gone");
  expectRefused(scene, scene.args({"-dstpath=x"}), {text(msg::kPropNoCurrentDir, strerror(ENOENT))},
                Ended::kInConfiguration);
  std::filesystem::current_path(before);
}

TEST(Refusal, batchFilesThatAreNotAccepted) {
  CopyScene scene;
  const std::string a = scene.addSource("a");
  const CopyScene::Pairs pairs = {{a, scene.destination("a")}};
  const auto file = [&](const std::string& content) {
    return std::vector<std::string>{"-batchfile=" + scene.dir().file("own.xml", content),
                                    "-ignore-vendor-check"};
  };
  const std::string own = scene.dir() / "own.xml";
  const std::string failed = text(msg::kPropParseFileFailed, own);
  expectRefused(scene, {"-batchfile=" + own}, {text(msg::kParamOpenFailed, own), failed},
                Ended::kInConfiguration);
  expectRefused(scene, file("<tamrixspec version='1.0'><data>"), {text(msg::kParamParseFailed, own), failed},
                Ended::kInConfiguration);
  expectRefused(scene, file("<tamrixspec version='2.0'/>"), {text(msg::kBatchListerBadVersion, "2.0")},
                Ended::kInRun);
  expectRefused(scene,
                file("<tamrixspec version='1.0'><data><file><srcpath>/</srcpath></file></data></tamrixspec>"),
                {text(msg::kBatchNoDstpath), text(msg::kBatchListerFailed)}, Ended::kInRun);
  expectRefused(scene, scene.batch(pairs, "<nosuch>1</nosuch>"),
                {text(msg::kPropUnrecognized, "nosuch"), text(msg::kPropParamRefused, "nosuch", "1"),
                 text(msg::kPropParamHint)},
                Ended::kInConfiguration);
}

}  // namespace
}  // namespace tamrix
