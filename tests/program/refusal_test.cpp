// What the program refuses: each with its message, status 1, and a destination that stays as it was.
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

struct Row {
  std::vector<std::string> args;  // behind those of a copy that would succeed
  std::vector<std::string> messages;
  ProgramOptions options = {};
};

// Whether a refused run got as far as the pipeline, which ends with a line of its own.
enum class Ended { kInConfiguration, kInRun };

void expectRefused(const CopyScene& scene, Ended ended, const std::vector<Row>& rows) {
  const Contents before = scene.copied();
  for (const Row& row : rows) {
    const bool fromBatch = row.args[0].starts_with("-batchfile");
    const ProgramRun run = runProgram(fromBatch ? row.args : scene.args(row.args), row.options);
    EXPECT_EQ(run.status, 1) << testing::PrintToString(row.args) << run;
    for (const std::string& message : row.messages) EXPECT_EQ(run.count(message), 1) << message << run;
    EXPECT_EQ(run.count(text(msg::kMainEnded, 1)), ended == Ended::kInRun ? 1 : 0) << run;
    EXPECT_EQ(scene.copied(), before) << testing::PrintToString(row.args) << run;
  }
}

TEST(Refusal, optionsAndBatchFilesThatAreNotAccepted) {
  const CopyScene scene;
  const std::string a = scene.addSource("a");
  scene.addDestination("a");
  const std::string n100(100, 'n');
  const std::string missing = scene.dir() / "missing";
  const std::string cut = scene.dir().file("cut.xml", "<tamrixspec version='1.0'><data>");
  const std::string hint = text(msg::kPropertiesArgHint);
  const auto refused = [](auto... words) { return text(msg::kPropertiesArgRefused, words...); };
  expectRefused(
      scene, Ended::kInConfiguration,
      {{{"-nosuch=1"}, {text(msg::kPropertiesUnrecognized, "nosuch"), refused("nosuch", "1"), hint}},
       {{"-srcpath"}, {refused("srcpath", ""), hint}},
       {{"-Sparse=Enable"}, {text(msg::kPropertiesInvalid, "sparse", "Enable"), refused("Sparse", "Enable")}},
       {{"--srcpath=/x"}, {refused("-srcpath", "/x"), hint}},
       {{"-" + n100 + "=1"}, {text(msg::kPropertiesNameTooLong, n100, 99), hint}},
       {{"-dstpath=~/x"},
        {text(msg::kPropertiesHomeNotSet, "~/x")},
        {.environment = {{"HOME", std::nullopt}}}},
       {{"-batchfile=" + missing}, {text(msg::kBatchParamOpenFailed, missing)}},
       {{"-batchfile=" + cut}, {text(msg::kPropertiesParseFileFailed, cut)}},
       {scene.batch({{a, scene.destination("a")}}, "<nosuch>1</nosuch>"),
        {text(msg::kPropertiesParamRefused, "nosuch", "1"), text(msg::kPropertiesParamHint)}}});
}

TEST(Refusal, sizesThatMakeNoRing) {
  const CopyScene scene;
  scene.addSource("a");
  scene.addDestination("a");
  constexpr long long kMb = 1 << 20;
  const std::string total = "-total-buffer-size=";
  const std::string size = "-buffer-size=";
  std::vector<Row> rows = {
      {{total + "abc"}, {text(msg::kBufferSizeNotNumeric, "abc")}},
      {{size + "128kb"}, {text(msg::kBufferSizeUnknownUnit, "kb")}},
      {{total + "4097MB", size + "bad"}, {text(msg::kBufferTotalTooLarge, 4097 * kMb)}},
      {{total + "99999999999999999999GB"}, {text(msg::kBufferTotalTooLarge, INT64_MAX)}},
      {{total + "-5MB"}, {text(msg::kBufferTotalNotPositive, -5 * kMb)}},
      {{total + "4GB", size + "1025MB"}, {text(msg::kBufferSizeTooLarge, 1025 * kMb)}},
      {{size + "0"}, {text(msg::kBufferSizeNotPositive, 0)}},
      {{size + "2MB", total + "1MB"}, {text(msg::kBufferSizeOverTotal, 2 * kMb, kMb)}},
      {{size + "1B", total + "4GB"}, {text(msg::kBufferCannotCreate, 2147483647, strerror(ENOMEM))}}};
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // their own memory passes every limit
  rows.push_back({{total + "4GB"}, {text(msg::kBufferNoMemory)}, {.limits = {{RLIMIT_AS, 1 << 30}}}});
#endif
  expectRefused(scene, Ended::kInRun, rows);
}

TEST(Refusal, pathsAndFilesThatWillNotDo) {
  const CopyScene scene;
  const std::string a = scene.addSource("a");
  const std::string locked = scene.dir().file("locked/file");
  const std::string shut = scene.dir() / "shut";
  chmod(locked.c_str(), 0);
  std::filesystem::create_directory(shut);
  chmod(shut.c_str(), 0);
  const std::string missing = scene.dir() / "missing";
  std::string tooLong = scene.destination("");
  while (tooLong.size() < 800) tooLong += std::string(99, 'd') + "/";
  tooLong += std::string(1025 - 2 - tooLong.size(), 'e');  // with "/a" behind it
  expectRefused(
      scene, Ended::kInRun,
      {{{"-ignore-vendor-check=disable"}, {text(msg::kMainNoLtfsSide)}},
       {{"-srcpath=" + missing},
        {text(msg::kFileListerCannotOpen, missing, strerror(ENOENT)), text(msg::kCopyListNoSourceFiles)}},
       {scene.batch({{missing, scene.destination("a")}}),
        {text(msg::kCopyListStatFailed, missing), text(msg::kCopyListNoSourceFiles)}},
       {scene.batch({{missing, scene.destination("a")}, {shut, scene.destination("b")}}),
        {text(msg::kCopyListStatFailed, missing), text(msg::kCopyListNotRegularName, shut)}},
       {{"-srcpath=" + a}, {text(msg::kFileListerCannotOpen, a, strerror(ENOTDIR))}},
       {{"-srcpath=" + (scene.dir() / "locked")},
        {text(msg::kFileReaderOpenFailed, locked, strerror(EACCES))}},
       {{"-srcpath=" + shut}, {text(msg::kFileListerCannotOpen, shut, strerror(EACCES))}},
       {{"-dstpath=" + tooLong},
        {text(msg::kSpecFileListerPathTooLong, 1026),
         text(msg::kFileListerPathTooLong, 1024, tooLong + "/a")}}});
}

}  // namespace
}  // namespace tamrix
