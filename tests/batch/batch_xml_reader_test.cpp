#include "batch/batch_xml_reader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>

#include "tests/batch/samples.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"

namespace tamrix {
namespace {

using test::BothPasses;
using test::CapturedLog;
using test::TempDir;

const std::string kSmall =
    "<tamrixspec version=\"1.0\"><data><file><srcpath>/s</srcpath><sf rename=\"b\">a</sf>"
    "<dstpath>/d</dstpath></file></data></tamrixspec>";

std::string withName(const std::string& name) {
  return "<tamrixspec version=\"1.0\"><data><file><srcpath>/s</srcpath><dstpath>/d</dstpath><srcspec>" +
         name + "</srcspec></file></data></tamrixspec>";
}

TEST(BatchXmlReader, fileThatCannotBeReadAsOneIsRefusedWithItsReason) {
  const TempDir dir;
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const struct {
    std::string name;
    std::string reason;
  } rows[] = {
      {dir / "missing.xml", std::strerror(ENOENT)},
      {"", std::strerror(ENOENT)},
      {dir / "fifo/below.xml", std::strerror(ENOTDIR)},
      {dir.path(), std::strerror(EISDIR)},
      {fifo, "Not a regular file"},
      {"/dev/null", "Not a regular file"},
  };
  for (const auto& row : rows) {
    CapturedLog captured(kUrgent);
    const BothPasses passes(row.name);
    EXPECT_EQ(passes.paramResult, -1) << row.name;
    EXPECT_EQ(passes.dataResult, -1) << row.name;
    EXPECT_EQ(captured.logText(), logger->format(msg::kBatchOpenReason, row.reason) + "\n" +
                                      logger->format(msg::kParamOpenFailed, row.name) + "\n" +
                                      logger->format(msg::kBatchOpenReason, row.reason) + "\n" +
                                      logger->format(msg::kBatchOpenFailed, row.name) + "\n");
  }
}

TEST(BatchXmlReader, nameIsAPlainPathWhateverItLooksLike) {
  CapturedLog captured(kUrgent);
  const TempDir dir;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  std::string longName;
  while (longName.size() < 3000) longName += "./";
  longName += "deep.xml";
  for (const std::string& name :
       {std::string("a b.xml"), std::string("100%20%41.xml"), std::string("a:b.xml"),
        std::string("http://localhost/x.xml"), std::string("file:x.xml"), std::string("-"),
        std::string("x.xml#y?z"), longName}) {
    dir.file(name, kSmall);
    EXPECT_TRUE(BothPasses(name).accepted()) << name;
    std::filesystem::remove(dir / name);
    EXPECT_FALSE(BothPasses(name).accepted()) << name;
  }
  std::filesystem::current_path(before);
}

TEST(BatchXmlReader, textsArriveWholeWhereverTheParserSplitsItsInput) {
  CapturedLog captured(kUrgent);
  const TempDir dir;
  std::string document = "<tamrixspec version=\"1.0\"><data><file><srcpath>/s</srcpath><dstpath>/d</dstpath>";
  std::vector<std::string> names;
  for (std::size_t length = 1; length < 2000; length += 3) {
    names.push_back(std::string(length, 'x') + "&\u20ac" + std::string(length % 97, 'y'));
    document += "<sf>" + std::string(length, 'x') + "&amp;\u20ac" + std::string(length % 97, 'y') + "</sf>";
  }
  const BothPasses passes(dir.file("batch.xml", document + "</file></data></tamrixspec>"));
  ASSERT_TRUE(passes.accepted());
  ASSERT_EQ(passes.pairs.size(), names.size());
  for (std::size_t i = 0; i < names.size(); ++i) EXPECT_EQ(passes.pairs[i].source, "/s/" + names[i]);
}

TEST(BatchXmlReader, hugeTextAndDeepNestingAreRefusedAtTheParsersBounds) {
  const TempDir dir;
  const auto nested = [](int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<a>";
    for (int i = 0; i < depth; ++i) text += "</a>";
    return "<tamrixspec version=\"1.0\"><params>" + text + "</params></tamrixspec>";
  };
  const struct {
    std::string document;
    int expected;
  } rows[] = {
      {withName(std::string(1000000, 'x')), 0},
      {withName(std::string(11000000, 'x')), -1},
      {nested(200), 0},
      {nested(300), -1},
      {nested(1000000), -1},
  };
  for (const auto& row : rows) {
    CapturedLog captured(kUrgent);
    const BothPasses passes(dir.file("batch.xml", row.document));
    EXPECT_EQ(passes.paramResult, row.expected) << row.document.size();
    EXPECT_EQ(passes.dataResult, row.expected) << row.document.size();
    EXPECT_EQ(captured.logLines().size(), row.expected == 0 ? 0U : 4U) << captured.logText();
  }
}

TEST(BatchXmlReader, pairsBeforeTheBadFileStayAndAReaderCanBeUsedAgain) {
  CapturedLog captured;
  const TempDir dir;
  const std::string file = "<file><srcpath>/s</srcpath><sf>a</sf><dstpath>/d</dstpath></file>";
  const std::string name = dir.file("batch.xml", "<tamrixspec version=\"1.0\"><data>" + file + "<file>" +
                                                     "<sf>b</sf></file></data></tamrixspec>");
  BatchXmlReader reader(name);
  std::vector<BatchPair> pairs = {{"mine", "too"}};
  EXPECT_EQ(reader.getFileListInBatch(pairs), -1);
  EXPECT_EQ(reader.getFileListInBatch(pairs), -1);
  EXPECT_EQ(captured.count(msg::kBatchNoSrcpath), 2);
  ASSERT_EQ(pairs.size(), 3U);
  EXPECT_EQ(pairs[0].source, "mine");
  EXPECT_EQ(pairs[2].source, "/s/a");

  // Nothing of the refused passes is left: neither open elements nor names of the bad file.
  dir.file("batch.xml", kSmall);
  EXPECT_EQ(reader.getFileListInBatch(pairs), 0);
  EXPECT_EQ(pairs.back().destination, "/d/b");
  EXPECT_EQ(pairs.size(), 4U);
  EXPECT_EQ(captured.count(msg::kBatchPair, "/s/a", "/d/b"), 1);
  EXPECT_EQ(captured.count(msg::kBatchPair, "mine", "too"), 0);
}

TEST(BatchXmlReader, versionIsEmptyUntilAPassHasReadTheRoot) {
  CapturedLog captured;
  const TempDir dir;
  BatchXmlReader reader(dir.file("batch.xml", "<tamrixspec version=\"1.00\"><bad a='1'/></tamrixspec>"));
  EXPECT_EQ(reader.version(), "");
  std::vector<BatchParam> params;
  EXPECT_EQ(reader.getFileListInBatch(params), -1);
  EXPECT_EQ(reader.version(), "1.00");
}

TEST(BatchXmlReader, eachNodeIsTracedAtDebugInItsOrder) {
  CapturedLog captured;
  const TempDir dir;
  { const BothPasses passes(dir.file("batch.xml", kSmall)); }
  std::string expected;
  const auto add = [&](auto id, auto... args) { expected += logger->format(id, args...) + "\n"; };
  add(msg::kBatchConstructor);
  add(msg::kParamStartElement, "tamrixspec");
  add(msg::kBatchVersion, "1.0");
  add(msg::kParamStartElement, "data");
  add(msg::kParamStartElement, "file");
  for (const auto& [name, text] : {std::pair("srcpath", "/s"), {"sf", "a"}, {"dstpath", "/d"}}) {
    add(msg::kParamStartElement, name);
    add(msg::kParamText, text);
    add(msg::kParamEndElement, name);
  }
  for (const char* name : {"file", "data", "tamrixspec"}) add(msg::kParamEndElement, name);
  add(msg::kBatchStartElement, "tamrixspec");
  add(msg::kBatchVersion, "1.0");
  add(msg::kBatchStartElement, "data");
  add(msg::kBatchStartElement, "file");
  add(msg::kBatchStartElement, "srcpath");
  add(msg::kBatchTextSrcpath, "/s");
  add(msg::kBatchEndElement, "srcpath");
  add(msg::kBatchStartElement, "sf");
  add(msg::kBatchRename, "b");
  add(msg::kBatchTextSf, "a");
  add(msg::kBatchEndElement, "sf");
  add(msg::kBatchStartElement, "dstpath");
  add(msg::kBatchTextDstpath, "/d");
  add(msg::kBatchEndElement, "dstpath");
  for (const char* name : {"file", "data", "tamrixspec"}) add(msg::kBatchEndElement, name);
  add(msg::kBatchPair, "/s/a", "/d/b");
  add(msg::kBatchDestructor);
  EXPECT_EQ(captured.logText(), expected);
}

TEST(BatchPair, isNotComposedOfAnEmptyPart) {
  const std::string empty;
  EXPECT_TRUE(composePair("/s", "a", "/d", "b"));
  EXPECT_FALSE(composePair(empty, "a", "/d", "b"));
  EXPECT_FALSE(composePair("/s", empty, "/d", "b"));
  EXPECT_FALSE(composePair("/s", "a", empty, "b"));
  EXPECT_FALSE(composePair("/s", "a", "/d", empty));
}

TEST(ElementStack, endThatMatchesNoStartIsRefused) {
  CapturedLog captured;
  ElementStack stack;
  EXPECT_FALSE(stack.pop("a"));
  EXPECT_EQ(captured.count(msg::kBatchEndMismatch, "a", ""), 1);
  stack.push("a");
  stack.push("b");
  EXPECT_FALSE(stack.pop("a"));
  EXPECT_EQ(captured.count(msg::kBatchEndMismatch, "a", "b"), 1);
  EXPECT_TRUE(stack.pop("b"));
  EXPECT_TRUE(stack.pop("a"));
  EXPECT_TRUE(stack.empty());
}

}  // namespace
}  // namespace tamrix
