// The batch file: what the reader and the schema make of the sample files, and of files that are none of
// them.
#include "batch/batch_xml_reader.h"

#include <fnmatch.h>
#include <gtest/gtest.h>
#include <libxml/xmlreader.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "batch/batch_writer.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"

namespace tamrix {
namespace {

using test::CapturedLog;
using test::TempDir;

const std::string kAccepted = "tests/batch/samples/accepted";
const std::string kRefused = "tests/batch/samples/refused";
const std::string kExamples = "docs/examples";

// The batch files in these directories, in order, as paths below that of the sources: made the current one.
std::vector<std::string> filesIn(const std::vector<std::string>& directories) {
  std::filesystem::current_path(TAMRIX_SOURCE_DIR);
  std::vector<std::string> files;
  for (const std::string& directory : directories) {
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
      if (entry.path().extension() == ".xml") files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

// What both passes over one file gave.
struct BothPasses {
  explicit BothPasses(const std::string& fileName) {
    BatchXmlReader reader(fileName);
    paramResult = reader.getFileListInBatch(params);
    dataResult = reader.getFileListInBatch(pairs);
    version = reader.version();
  }
  bool accepted() const { return paramResult == 0 && dataResult == 0; }

  std::vector<BatchParam> params;
  std::vector<BatchPair> pairs;
  int paramResult = 1;
  int dataResult = 1;
  std::string version;
};

// What docs/tamrixspec.rng says: 0 accepts the file. docs/batch-files.md names where it and the reader
// differ.
int judgedBySchema(const std::string& file) {
  xmlSetStructuredErrorFunc(nullptr, [](auto...) {});
  xmlTextReaderPtr reader = xmlReaderForFile(file.c_str(), nullptr, XML_PARSE_NONET);
  EXPECT_EQ(xmlTextReaderRelaxNGValidate(reader, "docs/tamrixspec.rng"), 0);
  int result = xmlTextReaderRead(reader);
  while (result == 1) result = xmlTextReaderRead(reader);
  const bool isValid = xmlTextReaderIsValid(reader) == 1;
  xmlFreeTextReader(reader);
  xmlSetStructuredErrorFunc(nullptr, nullptr);
  return result == 0 && isValid ? 0 : 1;
}

// All that comes of one file, as samples/outcomes.txt holds it.
std::string outcome(const std::string& file) {
  CapturedLog captured(kUrgent);
  const BothPasses passes(file);
  std::ostringstream text;
  text << file << " version '" << passes.version << "' params " << passes.paramResult << " data "
       << passes.dataResult << " schema " << judgedBySchema(file) << '\n';
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
  const TempDir dir;
  for (const std::string& file : filesIn({kAccepted, kExamples})) {
    const CapturedLog captured(kUrgent);
    const std::string whole = test::readFile(file);
    const std::size_t rootEnd = whole.find_last_of('>') + 1;
    for (std::size_t length = 0; length <= whole.size(); ++length) {
      // Within a word, one cut is like the next.
      if (length > 1 && std::isalnum(whole[length]) != 0 && std::isalnum(whole[length - 2]) != 0) continue;
      const BothPasses passes(dir.file("cut.xml", whole.substr(0, length)));
      ASSERT_EQ(passes.accepted(), length >= rootEnd) << file << " cut at " << length;
      ASSERT_EQ(passes.paramResult, passes.dataResult) << file << " cut at " << length;
    }
  }
}

const std::string kRootStart = "<tamrixspec version='1.0'>";
const std::string kFileStart = kRootStart + "<data><file><srcpath>/s</srcpath><dstpath>/d</dstpath>";
const std::string kFileEnd = "</file></data></tamrixspec>";

TEST(BatchXmlReader, aFifoIsRefusedAtOnce) {
  const CapturedLog captured(kUrgent);
  const TempDir dir;
  ASSERT_EQ(mkfifo((dir / "fifo").c_str(), 0600), 0);
  EXPECT_FALSE(BothPasses(dir / "fifo").accepted());
  EXPECT_EQ(captured.count(msg::kBatchOpenReason, "Not a regular file"), 2) << captured.logText();
}

TEST(BatchXmlReader, nameIsAPlainPathWhateverItLooksLike) {
  const CapturedLog captured(kUrgent);
  const TempDir dir;
  std::filesystem::current_path(dir.path());
  for (const char* name : {"100%20%41 b.xml", "http://localhost/x.xml", "file:x.xml", "-", "x.xml#y?z"}) {
    dir.file(name, kFileStart + "<sf>a</sf>" + kFileEnd);
    EXPECT_TRUE(BothPasses(name).accepted()) << name;
    std::filesystem::remove(dir / name);
    EXPECT_FALSE(BothPasses(name).accepted()) << name;
  }
  std::filesystem::current_path("/");
}

TEST(BatchXmlReader, textsArriveWholeWhereverTheParserSplitsItsInput) {
  const CapturedLog captured(kUrgent);
  const TempDir dir;
  std::string document = kFileStart;
  std::vector<std::string> names;
  for (std::size_t length = 1; length < 2000; length += 3) {
    const std::string start(length, 'x');
    const std::string end = "\u20ac" + std::string(length % 97, 'y');
    names.push_back("/s/" + start + "&" + end);
    document += "<sf>" + start + "&amp;" + end + "</sf>";
  }
  const BothPasses passes(dir.file("batch.xml", document + kFileEnd));
  ASSERT_EQ(passes.pairs.size(), names.size());
  for (std::size_t i = 0; i < names.size(); ++i) EXPECT_EQ(passes.pairs[i].source, names[i]);
}

TEST(BatchXmlReader, hugeTextAndDeepNestingAreRefusedAtTheParsersBounds) {
  const TempDir dir;
  const auto named = [](std::size_t length) {
    return kFileStart + "<srcspec>" + std::string(length, 'x') + "</srcspec>" + kFileEnd;
  };
  const auto nested = [](int depth) {
    std::string text = kRootStart + "<params>";
    for (int i = 0; i < 2 * depth; ++i) text += i < depth ? "<a>" : "</a>";
    return text + "</params></tamrixspec>";
  };
  const auto isAccepted = [&dir](const std::string& document) {
    const CapturedLog captured(kUrgent);
    const bool accepted = BothPasses(dir.file("batch.xml", document)).accepted();
    EXPECT_EQ(captured.logText().empty(), accepted) << captured.logText();
    return accepted;
  };
  EXPECT_TRUE(isAccepted(named(1000000)) && isAccepted(nested(200)));
  EXPECT_FALSE(isAccepted(named(11000000)) || isAccepted(nested(300)) || isAccepted(nested(1000000)));
}

// Each path goes to its like in another directory, and to another name.
TEST(BatchWriter, whatItWritesIsReadBackToTheByteAndTheRestIsRefused) {
  const CapturedLog captured(kUrgent);
  const TempDir dir;
  std::FILE* const file = std::fopen((dir / "made.xml").c_str(), "w");
  BatchWriter writer(*file);
  const BatchParam params[] = {{"sparse", "enable"}, {"buffer-size", "<&>\""}};
  ASSERT_EQ(writer.begin(), 0);
  std::vector<std::string> written;
  const auto add = [&](const std::string& source, const std::string& destination) {
    const std::optional<BatchEntry> entry = batchEntry(source, destination);
    if (!entry) return false;
    EXPECT_EQ(writer.add(*entry), 0);
    written.push_back(source + '\n' + destination);
    return true;
  };
  for (const char* tail : {"a", "b", "d/a", "R&D <1> \"x\" ']]>-->", "&amp;", " a ", "d/ ", "w*/w?/a",
                           "w*/d/a", "//a", "./a", "\u20ac/\U0001F39E\x7F"}) {
    EXPECT_TRUE(add(std::string("/s/") + tail, std::string("/t/") + tail)) << tail;
    EXPECT_TRUE(add(std::string("/s/d/") + tail, std::string("/t/*\"?<&>") + tail)) << tail;
    EXPECT_TRUE(add(std::string("/s/") + tail, "/t/ ")) << tail;
  }
  for (const char* tail : {" ", "a*", "a?", "*/ ", "a\tb", "\n", "d\r/a", "\x01", "\xFF", "d\xFF/a",
                           "\xC1\x81", "\xED\xA0\x80", "\xEF\xBF\xBE"}) {
    EXPECT_FALSE(add(std::string("/s/") + tail, std::string("/t/") + tail)) << tail;
    EXPECT_FALSE(add(std::string("/s/") + tail, "/t/b")) << tail;
  }
  EXPECT_FALSE(add("/s/a", "/t/\n") || add("/a", "/t/a") || add("/s/a", "/a"));
  ASSERT_EQ(writer.end(params), 0);
  ASSERT_EQ(std::fclose(file), 0);
  std::filesystem::current_path(TAMRIX_SOURCE_DIR);
  EXPECT_EQ(judgedBySchema(dir / "made.xml"), 0);
  const BothPasses passes(dir / "made.xml");
  ASSERT_EQ(passes.params.size(), 2U);
  EXPECT_EQ(passes.params.back().value, params[1].value);
  std::vector<std::string> read;
  for (const BatchPair& pair : passes.pairs) read.push_back(pair.source + '\n' + pair.destination);
  EXPECT_EQ(read, written) << captured.logText();
}

}  // namespace
}  // namespace tamrix
