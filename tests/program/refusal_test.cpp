// What the program refuses: each with its message, status 1, and a destination that stays as it was.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <limits>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

struct Row {
  std::vector<std::string> args;
  std::vector<std::string> messages;
  ProgramOptions options = {};
};

// Whether a refused run got as far as the pipeline, which ends with a line of its own.
enum class Ended { kInConfiguration, kInRun };

void expectRefused(const CopyScene& scene, Ended ended, const std::vector<Row>& rows) {
  const Contents before = scene.copied();
  for (const Row& row : rows) {
    const ProgramRun run = runProgram(row.args, row.options);
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
  expectRefused(
      scene, Ended::kInConfiguration,
      {{scene.args({"-nosuch=1"}),
        {text(msg::kPropertiesUnrecognized, "nosuch"), text(msg::kPropertiesArgRefused, "nosuch", "1"),
         hint}},
       {scene.args({"-srcpath"}), {text(msg::kPropertiesArgRefused, "srcpath", ""), hint}},
       {scene.args({"-Sparse=Enable"}),
        {text(msg::kPropertiesInvalid, "sparse", "Enable"),
         text(msg::kPropertiesArgRefused, "Sparse", "Enable")}},
       {scene.args({"--srcpath=/x"}), {text(msg::kPropertiesArgRefused, "-srcpath", "/x"), hint}},
       {scene.args({"-" + n100 + "=1"}), {text(msg::kPropertiesNameTooLong, n100, 99), hint}},
       {scene.args({"-dstpath=~/x"}),
        {text(msg::kPropertiesHomeNotSet, "~/x")},
        {.environment = {{"HOME", std::nullopt}}}},
       {{"-batchfile=" + missing},
        {text(msg::kBatchParamOpenFailed, missing), text(msg::kPropertiesParseFileFailed, missing)}},
       {{"-batchfile=" + cut},
        {text(msg::kBatchParamParseFailed, cut), text(msg::kPropertiesParseFileFailed, cut)}},
       {scene.batch({{a, scene.destination("a")}}, "<nosuch>1</nosuch>"),
        {text(msg::kPropertiesUnrecognized, "nosuch"), text(msg::kPropertiesParamRefused, "nosuch", "1"),
         text(msg::kPropertiesParamHint)}}});
}

TEST(Refusal, sizesThatMakeNoRing) {
  const CopyScene scene;
  scene.addSource("a");
  scene.addDestination("a");
  constexpr long long kMb = 1 << 20;
  std::vector<Row> rows = {
      {scene.args({"-total-buffer-size=abc"}), {text(msg::kBufferSizeNotNumeric, "abc")}},
      {scene.args({"-buffer-size=128kb"}), {text(msg::kBufferSizeUnknownUnit, "kb")}},
      {scene.args({"-total-buffer-size=4097MB", "-buffer-size=bad"}),
       {text(msg::kBufferTotalTooLarge, 4097 * kMb)}},
      {scene.args({"-total-buffer-size=99999999999999999999GB"}),
       {text(msg::kBufferTotalTooLarge, std::numeric_limits<std::int64_t>::max())}},
      {scene.args({"-total-buffer-size=-5MB"}), {text(msg::kBufferTotalNotPositive, -5 * kMb)}},
      {scene.args({"-total-buffer-size=4GB", "-buffer-size=1025MB"}),
       {text(msg::kBufferSizeTooLarge, 1025 * kMb)}},
      {scene.args({"-buffer-size=0"}), {text(msg::kBufferSizeNotPositive, 0)}},
      {scene.args({"-buffer-size=2MB", "-total-buffer-size=1MB"}),
       {text(msg::kBufferSizeOverTotal, 2 << 20, kMb)}},
      {scene.args({"-buffer-size=1B", "-total-buffer-size=4GB"}),
       {text(msg::kBufferManyBuffers, 2147483647),
        text(msg::kBufferCannotCreate, 2147483647, strerror(ENOMEM))}}};
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // their own memory passes every limit
  rows.push_back({scene.args({"-total-buffer-size=4GB"}),
                  {text(msg::kBufferNoMemory)},
                  {.limits = {{RLIMIT_AS, 1 << 30}}}});
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
      {{scene.args({"-ignore-vendor-check=disable"}), {text(msg::kMainNoLtfsSide)}},
       {scene.args({"-srcpath=" + missing}),
        {text(msg::kFileListerCannotOpen, missing, strerror(ENOENT)), text(msg::kCopyListNoSourceFiles)}},
       {scene.batch({{missing, scene.destination("a")}}),
        {text(msg::kCopyListStatFailed, missing), text(msg::kCopyListNoSourceFiles)}},
       {scene.batch({{missing, scene.destination("a")}, {shut, scene.destination("b")}}),
        {text(msg::kCopyListStatFailed, missing), text(msg::kCopyListNotRegularName, shut)}},
       {scene.args({"-srcpath=" + a}), {text(msg::kFileListerCannotOpen, a, strerror(ENOTDIR))}},
       {scene.args({"-srcpath=" + (scene.dir() / "locked")}),
        {text(msg::kFileReaderOpenFailed, locked, strerror(EACCES))}},
       {scene.args({"-srcpath=" + shut}), {text(msg::kFileListerCannotOpen, shut, strerror(EACCES))}},
       {scene.args({"-dstpath=" + tooLong}),
        {text(msg::kSpecFileListerPathTooLong, 1026),
         text(msg::kFileListerPathTooLong, 1024, tooLong + "/a")}}});
}

}  // namespace
}  // namespace tamrix
