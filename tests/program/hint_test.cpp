// What a person is told beside what a script is told.
#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

const std::map<std::string, std::optional<std::string>> kWatched = {{"TAMRIX_PROGRESS", "always"}};

TEST(Hint, tellsAPersonWhatMayBeMeantAndAScriptNothing) {
  const CopyScene scene;
  const std::string a = scene.addSource("a");
  const auto takes = [](const char* option, const char* values) {
    return text(msg::kPropertiesHintOtherValue, option, values);
  };
  const auto meant = [](const char* option) { return text(msg::kPropertiesHintOtherName, option); };
  const std::string quote = text(msg::kPropertiesHintUnquoted, a);
  const std::string source = scene.source("").substr(0, scene.source("").size() - 1);
  const std::string path = "-srcpath=" + source;
  const auto batch = [&](const char* name, const std::string& content) {
    return scene.dir().file(name, "<tamrixspec version='1.0'>" + content + "</tamrixspec>");
  };
  const std::string badOption = batch("bad.xml", "<params><recursve>enable</recursve></params>");
  const std::string noMatch =
      batch("no.xml", "<data><file><srcpath>" + source +
                          "</srcpath><dstpath>/d</dstpath><srcspec>*.MOV</srcspec></file></data>");
  for (const auto& [args, hint] : std::vector<std::pair<std::vector<std::string>, std::string>>{
           {{"--srcpath=/x"}, text(msg::kPropertiesHintOneDash, "srcpath")},
           {{"-srcpath", "DIR"}, text(msg::kPropertiesHintNoValue, "srcpath", "DIR")},
           {{"-srcpath"}, text(msg::kPropertiesHintNoValue, "srcpath", "VALUE")},
           {{"-recursve"}, meant("-recursive")},
           {{"-Recursive"}, meant("-recursive")},
           {{"--recrusive=enable"}, meant("-recursive")},
           {{"-batchfile=" + badOption}, meant("recursive")},
           {{"-nothinglikeit"}, ""},
           {{"-recursive=yes"}, takes("-recursive", "enable or disable")},
           {{"-loglevel=info"}, takes("-loglevel", "DEBUG, PROGRESS, INFO, WARNING or URGENT")},
           {scene.args({"-buffer-size=1GiB"}), text(msg::kBufferHintSizes)},
           {scene.args({"-total-buffer-size=512m"}), text(msg::kBufferHintSizes)},
           {{path, a}, quote},
           {{"-srcspec", a, a}, quote},
           {{path}, text(msg::kCopyListHintNothingAsked)},
           {{path, "-srcspec=*.MOV"}, text(msg::kCopyListHintNoMatch, source, "*.MOV")},
           {{path, "-srcspec=*.MOV"}, text(msg::kCopyListHintNotRecursive, source)},
           {{"-batchfile=" + noMatch}, text(msg::kCopyListHintNoBatchMatch, noMatch)}}) {
    const ProgramRun watched = runProgram(args, {.environment = kWatched});
    const ProgramRun plain = runProgram(args);
    EXPECT_EQ(watched.status, plain.status) << watched << plain;
    EXPECT_EQ(watched.out, plain.out);
    EXPECT_EQ(watched.linesAfter("Hint: ").empty(), hint.empty()) << watched;
    EXPECT_TRUE(hint.empty() || watched.count(hint) == 1) << hint << watched;
    EXPECT_TRUE(plain.linesAfter("Hint: ").empty()) << plain;
  }
}

TEST(Hint, progressIsShownToWhomTheEnvironmentSays) {
  const CopyScene scene;
  scene.addSource("a");
  for (const auto& [setting, isShown, isKnown] : std::vector<std::tuple<const char*, bool, bool>>{
           {"always", true, true}, {"never", false, true}, {"auto", false, true}, {"yes", false, false}}) {
    const ProgramRun run = scene.copy({}, {.environment = {{"TAMRIX_PROGRESS", setting}}});
    EXPECT_EQ(run.status, 0) << run;
    EXPECT_EQ(run.linesAfter("Total: 3 B in 1 file(s) in ").size(), isShown ? 1U : 0U) << run;
    EXPECT_EQ(run.count(text(msg::kMainProgressNotRecognized, setting)), isKnown ? 0 : 1) << run;
  }
}

}  // namespace
}  // namespace tamrix
