// What each sample file gives: its options and pairs, or the rule that refuses it.
#include <gtest/gtest.h>

#include <map>
#include <optional>

#include "tests/batch/samples.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"

namespace tamrix {
namespace {

using test::BothPasses;
using test::CapturedLog;
using test::kAccepted;
using test::kExamples;
using test::kRefused;
using test::namesIn;
using test::TempDir;

using Strings = std::vector<std::string>;

struct Yield {
  Strings params;  // "name=value"
  Strings pairs;   // "source > destination"
};

const std::map<std::string, Yield> kYields = {
    {"plain-list.xml",
     {{},
      {"/ltfs/vol/projects/scene-01.mov > /restore/projects/scene-01.mov",
       "/ltfs/vol/projects/scene-02.mov > /restore/projects/scene-02.mov",
       "/ltfs/vol/projects/audio/scene-01.wav > /restore/projects/audio/scene-01.wav"}}},
    {"wildcards.xml",
     {{"recursive=enable"},
      {"/ltfs/vol/projects/*.img > /restore/projects/*.img",
       "/ltfs/vol/projects/take-??.wav > /restore/projects/take-??.wav"}}},
    {"renames.xml",
     {{},
      {"/ltfs/vol/projects/b.dat > /restore/projects/b-copy.dat",
       "/ltfs/vol/projects/R&D.dat > /restore/projects/R&D 2024.dat",
       "/ltfs/vol/projects/c.dat > /restore/projects/c.dat"}}},
    {"parameters.xml",
     {{"loglevel=DEBUG", "sparse=enable", "total-buffer-size=512M"},
      {"/ltfs/vol/projects/*.img > /backup/projects/*.img",
       "/ltfs/vol/projects/b.dat > /backup/projects/b-copy.dat"}}},
    {"several-destinations.xml",
     {{},
      {"/ltfs/vol1/projects/*.mov > /restore/video/*.mov", "/ltfs/vol1/projects/*.wav > /restore/audio/*.wav",
       "/home/editor/out/cut.mov > /ltfs/vol2/delivery/cut.mov"}}},
    {"root_alone.xml", {}},
    {"sections_empty.xml", {}},
    {"params_alone.xml", {{"LogLevel=INFO", "timer=enable", "loglevel=DEBUG"}, {}}},
    {"sections_repeated_in_any_order.xml",
     {{"sparse=enable", "timer=enable"}, {"/s/*.img > /d/*.img", "/s/*.img > /d/*.img"}}},
    {"srcspec_and_sf_mixed.xml",
     {{}, {"/s/1.dat > /d/1.dat", "/s/*.img > /d/*.img", "/s/2.dat > /d/3.dat", "/s/a? > /d/a?"}}},
    {"rename_empty.xml", {{}, {"/s/1 > /d/x", "/s/2 > /d/2"}}},
    {"rename_with_wildcard.xml", {{}, {"/s/1 > /d/a*"}}},
    {"sf_unknown_attribute.xml", {{}, {"/s/1 > /d/2"}}},
    {"root_other_attributes.xml", {{}, {"/s/*.img > /d/*.img"}}},
    {"option_attributes.xml", {{"sparse=enable"}, {}}},
    {"options_grouped.xml", {{"buffer-size=1M", "timer=enable"}, {}}},
    {"option_empty.xml", {{"interactive=enable"}, {}}},
    {"directories_with_slash.xml", {{}, {"/mnt/a//x > b///x"}}},
    {"references_in_text.xml", {{}, {"/R&D/<1>/a b > /d\u00e9j\u00e0 vu/\"\u20ac\""}}},
    {"white_space_in_text.xml", {{}, {"\n        /s\n      / a  > /d/ a "}}},
    {"latin1.xml", {{}, {"/caf\u00e9/*.img > /d/*.img"}}},
    {"version_unjudged.xml", {{}, {"/s/*.img > /d/*.img"}}},
    {"params_text.xml", {{"params=\n    enable\n    ", "sparse=enable"}, {}}},
    {"parts_nested.xml", {{}, {"/s/*.img > /d/*.img"}}},
    {"empty_parts_beside.xml", {{}, {"/s/*.img > /d/*.img"}}},
    {"root_namespace.xml", {{}, {"/s/*.img > /d/*.img"}}},
};

TEST(BatchSamples, acceptedOnesYieldTheirOptionsAndPairsInOrder) {
  CapturedLog captured(kUrgent);
  std::size_t seen = 0;
  for (const std::string& directory : {kAccepted, kExamples}) {
    for (const std::string& name : namesIn(directory)) {
      ++seen;
      ASSERT_TRUE(kYields.contains(name)) << name;
      const BothPasses passes(directory + "/" + name);
      EXPECT_TRUE(passes.accepted()) << name;
      EXPECT_EQ(passes.version, name == "version_unjudged.xml" ? "2.0" : "1.0") << name;
      Strings params;
      Strings pairs;
      for (const BatchParam& param : passes.params) params.push_back(param.name + "=" + param.value);
      for (const BatchPair& pair : passes.pairs) pairs.push_back(pair.source + " > " + pair.destination);
      EXPECT_EQ(params, kYields.at(name).params) << name;
      EXPECT_EQ(pairs, kYields.at(name).pairs) << name;
    }
  }
  EXPECT_EQ(captured.logText(), "");
  EXPECT_EQ(seen, kYields.size());
}

// The one line that a pass refuses a sample with, or nothing when only the other pass refuses it.
struct Refusal {
  std::string sample;
  std::optional<std::string> data;
  std::optional<std::string> params;
};

std::vector<Refusal> refusals() {
  const auto text = [](auto id, auto... args) { return logger->format(id, args...); };
  const auto without = [&](const char* a, const char* b) { return text(msg::kBatchElementWithout, a, b); };
  const auto under = [&](const char* a, const char* b) { return text(msg::kBatchElementUnder, a, b); };
  const auto attributes = [&](const char* a) { return text(msg::kBatchAttributesForbidden, a); };
  const auto unknown = [&](const char* a) { return text(msg::kBatchUnknownElement, a); };
  const auto stray = [&](const char* a) { return text(msg::kBatchUnexpectedText, a); };
  const auto dataNode = [&](int type) { return text(msg::kBatchUnexpectedNode, type); };
  const auto paramNode = [&](int type) { return text(msg::kParamUnexpectedNode, type); };
  const std::string versionless = text(msg::kBatchAttributeMissing, "version", "tamrixspec");
  const std::string inner = text(msg::kBatchRootNotOutermost, "tamrixspec");
  const std::string noSrcpath = text(msg::kBatchNoSrcpath);
  const std::string noDstpath = text(msg::kBatchNoDstpath);
  const std::string noName = text(msg::kBatchNoSourceName);
  const std::string wildcard = text(msg::kBatchWildcardInSf);
  return {
      {"root_without_version.xml", versionless, versionless},
      {"root_unknown.xml", unknown("batch"), without("batch", "tamrixspec")},
      {"root_is_data.xml", without("data", "tamrixspec"), without("data", "tamrixspec")},
      {"root_is_params.xml", {}, without("params", "tamrixspec")},
      {"root_in_root.xml", inner, inner},
      {"root_in_params.xml", inner, inner},
      {"params_attribute.xml", {}, attributes("params")},
      {"params_in_data.xml", {}, under("params", "data")},
      {"params_in_file.xml", {}, under("params", "data")},
      {"data_attribute.xml", attributes("data"), {}},
      {"data_in_data.xml", under("data", "data"), {}},
      {"data_in_params.xml", under("data", "params"), under("data", "params")},
      {"file_in_root.xml", without("file", "data"), {}},
      {"file_in_params.xml", without("file", "data"), under("file", "params")},
      {"file_in_file.xml", under("file", "file"), {}},
      {"file_in_srcpath.xml", under("file", "file"), {}},
      {"file_attribute.xml", attributes("file"), {}},
      {"file_namespace.xml", attributes("file"), {}},
      {"file_empty.xml", noSrcpath, {}},
      {"srcpath_in_data.xml", without("srcpath", "file"), {}},
      {"srcpath_in_params.xml", without("srcpath", "data"), under("srcpath", "params")},
      {"srcpath_in_srcpath.xml", under("srcpath", "srcpath"), {}},
      {"srcpath_attribute.xml", attributes("srcpath"), {}},
      {"srcpath_twice.xml", text(msg::kBatchMultipleSrcpath, "/s2"), {}},
      {"srcpath_missing.xml", noSrcpath, {}},
      {"srcpath_empty.xml", noSrcpath, {}},
      {"srcpath_blank.xml", noSrcpath, {}},
      {"dstpath_in_root.xml", without("dstpath", "data"), {}},
      {"dstpath_in_dstpath.xml", under("dstpath", "dstpath"), {}},
      {"dstpath_attribute.xml", attributes("dstpath"), {}},
      {"dstpath_twice.xml", text(msg::kBatchMultipleDstpath, "/d2"), {}},
      {"dstpath_missing.xml", noDstpath, {}},
      {"srcspec_in_data.xml", without("srcspec", "file"), {}},
      {"srcspec_in_srcspec.xml", under("srcspec", "srcspec"), {}},
      {"srcspec_attribute.xml", attributes("srcspec"), {}},
      {"srcspec_missing.xml", noName, {}},
      {"srcspec_empty.xml", noName, {}},
      {"sf_in_data.xml", without("sf", "file"), {}},
      {"sf_in_sf.xml", under("sf", "sf"), {}},
      {"sf_wildcard.xml", wildcard, {}},
      {"sf_wildcard_renamed.xml", wildcard, {}},
      {"second_file_incomplete.xml", noDstpath, {}},
      {"unknown_in_root.xml", unknown("sparse"), {}},
      {"unknown_in_root_attribute.xml", unknown("sparse"), attributes("sparse")},
      {"unknown_in_data.xml", unknown("sparse"), {}},
      {"unknown_in_file.xml", unknown("SRCPATH"), {}},
      {"text_in_root.xml", stray("tamrixspec"), {}},
      {"text_in_data.xml", stray("data"), {}},
      {"text_in_file.xml", stray("file"), {}},
      {"comment.xml", dataNode(8), paramNode(8)},
      {"comment_before_root.xml", dataNode(8), paramNode(8)},
      {"processing_instruction.xml", dataNode(7), paramNode(7)},
      {"cdata.xml", dataNode(4), paramNode(4)},
      {"doctype.xml", dataNode(10), paramNode(10)},
      {"external_entity.xml", dataNode(10), paramNode(10)},
  };
}

// Samples that are no XML, with the line that the reason must name; 0: whichever the library names.
const std::map<std::string, int> kMalformed = {
    {"empty.xml", 1},
    {"blank.xml", 0},
    {"not_xml.xml", 1},
    {"truncated.xml", 8},
    {"end_mismatch.xml", 5},
    {"two_roots.xml", 3},
    {"text_after_root.xml", 3},
    {"attribute_twice.xml", 6},
    {"ampersand.xml", 5},
    {"entity_undefined.xml", 5},
    {"entities_undefined.xml", 4},
    {"prefix_unknown_then_end_mismatch.xml", 5},
    {"encoding_unknown.xml", 1},
    {"control_character.xml", 5},
    {"not_utf8.xml", 5},
    {"billion_laughs_in_text.xml", 0},
    {"billion_laughs_in_attribute.xml", 0},
};

template <class Item>
void expectPass(const std::string& sample, const std::optional<std::string>& refusal) {
  CapturedLog captured(kUrgent);
  std::vector<Item> items;
  EXPECT_EQ(BatchXmlReader(kRefused + "/" + sample).getFileListInBatch(items), refusal ? -1 : 0) << sample;
  EXPECT_EQ(captured.logText(), refusal ? *refusal + "\n" : "") << sample;
}

TEST(BatchSamples, refusedOnesAreRefusedByTheRuleTheyBreak) {
  std::vector<Refusal> rows;
  {
    CapturedLog captured;
    rows = refusals();
  }
  Strings seen;
  for (const Refusal& row : rows) {
    expectPass<BatchPair>(row.sample, row.data);
    expectPass<BatchParam>(row.sample, row.params);
    seen.push_back(row.sample);
  }
  for (const auto& [sample, line] : kMalformed) seen.push_back(sample);
  std::sort(seen.begin(), seen.end());
  EXPECT_EQ(seen, namesIn(kRefused));
}

template <class Item>
void expectMalformed(const std::string& sample, int line) {
  CapturedLog captured(kUrgent);
  std::vector<Item> items;
  EXPECT_EQ(BatchXmlReader(kRefused + "/" + sample).getFileListInBatch(items), -1) << sample;
  const Strings lines = captured.logLines();
  ASSERT_EQ(lines.size(), 2U) << sample << '\n' << captured.logText();
  const std::string start = "BatchXmlReader:getFileListInBatch - ERROR Line ";
  const std::string lineStart = start + (line == 0 ? "" : std::to_string(line) + ": ");
  EXPECT_TRUE(lines[0].starts_with(lineStart)) << sample << '\n' << lines[0];
  EXPECT_GT(lines[0].size(), lineStart.size()) << sample << " has no reason";
  const bool isData = std::is_same_v<Item, BatchPair>;
  EXPECT_EQ(captured.count(isData ? msg::kBatchParseFailed : msg::kParamParseFailed, kRefused + "/" + sample),
            1);
}

TEST(BatchSamples, malformedOnesAreRefusedWithLineAndReasonAndTheLibraryIsSilent) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  for (const auto& [sample, line] : kMalformed) {
    expectMalformed<BatchPair>(sample, line);
    expectMalformed<BatchParam>(sample, line);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(BatchSamples, cutShortIsNeverAccepted) {
  CapturedLog captured(kUrgent);
  const TempDir dir;
  for (const std::string& directory : {kAccepted, kExamples}) {
    for (const std::string& name : namesIn(directory)) {
      const std::string whole = test::readFile(directory + "/" + name);
      const std::size_t rootEnd = whole.find_last_of('>') + 1;
      for (std::size_t length = 0; length <= whole.size(); ++length) {
        const BothPasses passes(dir.file("cut.xml", whole.substr(0, length)));
        const int expected = length < rootEnd ? -1 : 0;
        ASSERT_EQ(passes.paramResult, expected) << name << " cut at " << length;
        ASSERT_EQ(passes.dataResult, expected) << name << " cut at " << length;
      }
      captured.clear();
    }
  }
}

}  // namespace
}  // namespace tamrix
