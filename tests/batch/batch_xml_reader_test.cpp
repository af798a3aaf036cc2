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

const std::string kRootStart = "<tamrixspec version='1.0'>";
const std::string kFileStart = kRootStart + "<data><file><srcpath>/s</srcpath><dstpath>/d</dstpath>";
const std::string kFileEnd = "</file></data></tamrixspec>";

TEST(BatchXmlReader, fileThatCannotBeReadAsOneIsRefusedWithItsReason) {
  const TempDir dir;
  const std::string fifo = dir / "fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::pair<std::string, std::string> rows[] = {
      {dir / "missing.xml", std::strerror(ENOENT)},
      {"", std::strerror(ENOENT)},
      {dir.path(), std::strerror(EISDIR)},
      {fifo, "Not a regular file"},
  };
  for (const auto& [name, reason] : rows) {
    const CapturedLog captured(kUrgent);
    const BothPasses passes(name);
    EXPECT_EQ(captured.count(msg::kBatchOpenReason, reason), 2) << name;
    EXPECT_EQ(captured.count(msg::kBatchOpenFailed, name), 2) << name;  // of each pass, in the same words
    EXPECT_TRUE(passes.paramResult == -1 && passes.dataResult == -1) << name;
  }
}

TEST(BatchXmlReader, nameIsAPlainPathWhateverItLooksLike) {
  const CapturedLog captured(kUrgent);
  const TempDir dir;
  std::filesystem::current_path(dir.path());
  std::string longName = "deep.xml";
  while (longName.size() < 3000) longName.insert(0, "./");
  for (const std::string& name :
       {std::string("100%20%41 b.xml"), std::string("http://localhost/x.xml"), std::string("file:x.xml"),
        std::string("-"), std::string("x.xml#y?z"), longName}) {
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
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<a>";
    for (int i = 0; i < depth; ++i) text += "</a>";
    return kRootStart + "<params>" + text + "</params></tamrixspec>";
  };
  const std::pair<std::string, int> rows[] = {
      {named(1000000), 0}, {named(11000000), -1}, {nested(200), 0}, {nested(300), -1}, {nested(1000000), -1}};
  for (const auto& [document, expected] : rows) {
    const CapturedLog captured(kUrgent);
    const BothPasses passes(dir.file("batch.xml", document));
    EXPECT_EQ(passes.paramResult, expected) << document.size();
    EXPECT_EQ(passes.dataResult, expected) << document.size();
    EXPECT_EQ(captured.logLines().size(), expected == 0 ? 0U : 4U) << captured.logText();
  }
}

}  // namespace
}  // namespace tamrix
