// What the reader, the schema and the documentation make of each sample file.
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <libxml/xmlreader.h>

#include <set>
#include <sstream>

#include "tests/batch/samples.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"

namespace tamrix {
namespace {

using test::BothPasses;
using test::CapturedLog;
using test::filesIn;
using test::kAccepted;
using test::kExamples;
using test::kRefused;

// All that comes of one file, as samples/outcomes.txt holds it.
std::string outcome(const std::string& file) {
  CapturedLog captured(kUrgent);
  const BothPasses passes(file);
  std::ostringstream text;
  text << file << " version '" << passes.version << "' params " << passes.paramResult << " data "
       << passes.dataResult << '\n';
  for (const BatchParam& param : passes.params) text << "  " << param.name << "='" << param.value << "'\n";
  for (const BatchPair& pair : passes.pairs)
    text << "  '" << pair.source << "' > '" << pair.destination << "'\n";
  text << captured.logText();
  return text.str();
}

// The lines of outcomes.txt are patterns: the library words its reasons as it likes.
TEST(BatchSamples, eachYieldsItsItemsOrIsRefusedByTheRuleItBreaksAndTheLibraryIsSilent) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  std::string all;
  for (const std::string& file : filesIn({kAccepted, kExamples, kRefused})) all += outcome(file);
  EXPECT_EQ(testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout(), "");
  std::istringstream actual(all);
  std::istringstream expected(test::readFile("tests/batch/samples/outcomes.txt"));
  std::string line;
  std::string pattern;
  for (int number = 1; std::getline(actual, line); ++number) {
    ASSERT_TRUE(std::getline(expected, pattern)) << line;
    ASSERT_EQ(fnmatch(pattern.c_str(), line.c_str(), FNM_NOESCAPE), 0)
        << "outcomes.txt:" << number << ": " << pattern << '\n'
        << line;
  }
  EXPECT_FALSE(std::getline(expected, pattern)) << pattern;
}

TEST(BatchSamples, cutShortIsNeverAccepted) {
  const test::TempDir dir;
  for (const std::string& file : filesIn({kAccepted, kExamples})) {
    const CapturedLog captured(kUrgent);
    const std::string whole = test::readFile(file);
    const std::size_t rootEnd = whole.find_last_of('>') + 1;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
      const BothPasses passes(dir.file("cut.xml", whole.substr(0, length)));
      const int expected = length < rootEnd ? -1 : 0;
      ASSERT_EQ(passes.paramResult, expected) << file << " cut at " << length;
      ASSERT_EQ(passes.dataResult, expected) << file << " cut at " << length;
    }
  }
}

bool schemaAccepts(const std::string& file) {
  xmlSetStructuredErrorFunc(nullptr, [](auto...) {});
  xmlTextReaderPtr reader = xmlReaderForFile(file.c_str(), nullptr, XML_PARSE_NONET);
  EXPECT_EQ(xmlTextReaderRelaxNGValidate(reader, "docs/tamrixspec.rng"), 0);
  int result = xmlTextReaderRead(reader);
  while (result == 1) result = xmlTextReaderRead(reader);
  const bool isValid = xmlTextReaderIsValid(reader) == 1;
  xmlFreeTextReader(reader);
  xmlSetStructuredErrorFunc(nullptr, nullptr);
  return result == 0 && isValid;
}

TEST(BatchSchema, agreesWithTheReaderExceptWhereNamed) {
  // docs/batch-files.md names these too.
  const std::set<std::string> named = {
      // Refused by the reader only: nodes that are invisible to a schema, or look like others.
      kRefused + "/comment.xml",
      kRefused + "/comment_before_root.xml",
      kRefused + "/processing_instruction.xml",
      kRefused + "/cdata.xml",
      kRefused + "/doctype.xml",
      kRefused + "/external_entity.xml",
      kRefused + "/file_namespace.xml",
      // Refused by the schema only: judged behind the reader, or passed over by it.
      kAccepted + "/version_unjudged.xml",
      kAccepted + "/params_text.xml",
      kAccepted + "/parts_nested.xml",
      kAccepted + "/empty_parts_beside.xml",
      kAccepted + "/root_namespace.xml",
  };
  const CapturedLog captured(kUrgent);
  std::set<std::string> differences;
  for (const std::string& file : filesIn({kAccepted, kRefused, kExamples})) {
    if (schemaAccepts(file) != BothPasses(file).accepted()) differences.insert(file);
  }
  EXPECT_EQ(differences, named);
}

}  // namespace
}  // namespace tamrix
