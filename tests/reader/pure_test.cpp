// The pieces of the listing that need no files: wildcards, order, path texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "reader/extent.h"
#include "reader/file_c.h"
#include "reader/number_table.h"
#include "reader/path_identity.h"
#include "reader/wildcard.h"
#include "tests/support/captured_log.h"

namespace tamrix {
namespace {

// The rules of matching written down as they read, at exponential cost.
bool obviousMatch(std::string_view pattern, std::string_view name) {
  if (pattern.empty()) return name.empty();
  if (pattern[0] == '*') {
    for (std::size_t skipped = 0; skipped <= name.size(); ++skipped) {
      if (obviousMatch(pattern.substr(1), name.substr(skipped))) return true;
    }
    return false;
  }
  if (pattern[0] == '?') return obviousMatch(pattern.substr(1), name.substr(name.empty() ? 0 : 1));
  return !name.empty() && pattern[0] == name[0] && obviousMatch(pattern.substr(1), name.substr(1));
}

// All texts over `letters` of up to `length` characters.
std::vector<std::string> textsOver(std::string_view letters, std::size_t length) {
  std::vector<std::string> texts = {""};
  for (std::size_t from = 0; length > 0; --length) {
    const std::size_t to = texts.size();
    for (; from < to; ++from) {
      for (const char c : letters) texts.push_back(texts[from] + c);
    }
  }
  return texts;
}

TEST(WildcardMatch, agreesWithTheObviousMatcherOnAllShortTexts) {
  const std::vector<std::string> names = textsOver("ab", 5);
  for (const std::string& pattern : textsOver("ab*?", 5)) {
    for (const std::string& name : names) {
      ASSERT_EQ(wildcardMatch(pattern, name), obviousMatch(pattern, name)) << pattern << " / " << name;
    }
  }
}

TEST(WildcardMatch, casesThatUsersMeet) {
  struct Row {
    const char* pattern;
    const char* name;
    bool matches;
  };
  for (const Row& row : std::vector<Row>{
           {"*", ".hidden", true},
           {"", "a", false},
           {"*.dat", "x.dat", true},
           {"*.dat", "x.DAT", false},
           {"a?", "a", true},  // a '?' at the end of the name stands for nothing
           {"a??", "a", true},
           {"a?b", "a", false},
           {"[ab]", "a", false},
           {"\\*", "*", false},
           {"\\*", "\\x", true},
       }) {
    EXPECT_EQ(wildcardMatch(row.pattern, row.name), row.matches) << row.pattern << " / " << row.name;
  }
}

TEST(WildcardMatch, aPatternOfManyStarsEndsSoon) {
  std::string pattern;
  for (int i = 0; i < 2000; ++i) pattern += "*a";
  EXPECT_FALSE(wildcardMatch(pattern + "b", std::string(20000, 'a')));
}

TEST(PathText, doubledSlashesAndDotsAreFoldedAndNothingElse) {
  struct Row {
    const char* a;
    const char* b;
    bool same;
  };
  for (const Row& row : std::vector<Row>{
           {"/a/b", "/a//b", true},
           {"/a/b", "/a/./b", true},
           {"/a/b", "/./a/././b/", true},
           {"/a/b", "/a/../a/b", false},
           {"/a/b", "/ab", false},
           {"/a/.b", "/a/b", false},
           {"/a/b.", "/a/b", false},
           {"/a/b/c", "/a/b", false},
           {"", "/", true},
       }) {
    EXPECT_EQ(samePathText(row.a, row.b), row.same) << row.a << ' ' << row.b;
    if (row.same) {
      EXPECT_EQ(pathTextHash(row.a), pathTextHash(row.b)) << row.a << ' ' << row.b;
    }
  }
}

class ExtentOrder : public testing::Test {
 protected:
  // An extent described as volume, partition, start block, offset, path.
  static Extent extent(const char* volume, char partition, std::int64_t block, std::int64_t offset,
                       FileC& file) {
    Extent made;
    std::copy_n(volume, std::min<std::size_t>(strlen(volume), Extent::kUuidLength), made.volumeUuid.begin());
    made.partition = static_cast<signed char>(partition);
    made.startBlock = block;
    made.offset = offset;
    made.file = &file;
    return made;
  }

  struct stat status_ {};
  FileC zoo_{"/1/zoo", "/o/zoo", status_};
  FileC ant_{"/2/ant", "/o/ant", status_};
};

TEST_F(ExtentOrder, isByVolumePartitionBlockOffsetAndByNameWithoutAPosition) {
  const std::vector<Extent> ordered = {
      extent("", '?', 9, 0, ant_),
      extent("", '?', 1, 0, zoo_),
      extent("0-uuid", 'b', 900, 0, zoo_),
      extent("1-uuid", '\xe4', 5, 0, zoo_),  // compared as signed
      extent("1-uuid", 'a', 900, 0, zoo_),
      extent("1-uuid", 'b', -4, 0, zoo_),
      extent("1-uuid", 'b', 20, 0, zoo_),
      extent("1-uuid", 'b', 20, 7, ant_),
      extent("1-uuid", 'b', 1LL << 40, 0, ant_),
  };
  for (std::size_t i = 0; i < ordered.size(); ++i) {
    for (std::size_t j = 0; j < ordered.size(); ++j) {
      EXPECT_EQ(extentLess(ordered[i], ordered[j]), i < j) << i << ' ' << j;
    }
  }
}

TEST_F(ExtentOrder, onlyTheFirstPartitionIsLookedAtForAMissingPosition) {
  const Extent unknown = extent("", '?', 0, 0, zoo_);
  const Extent emptyFile = extent("", 'a', 0, 0, ant_);
  EXPECT_FALSE(extentLess(unknown, emptyFile));  // by name: zoo after ant
  EXPECT_FALSE(extentLess(emptyFile, unknown));  // by partition: 'a' after '?'
}

TEST_F(ExtentOrder, sortingAgreesWithTheOrder) {
  // Few values of each, so that every rule decides somewhere and many extents are equal.
  std::minstd_rand random(1);
  std::vector<Extent> extents;
  for (int i = 0; i < 2000; ++i) {
    const std::array volumes = {"", "0-uuid", "1-uuid"};
    const char* const volume = volumes.at(random() % 3);
    const char partition = *volume == '\0' ? '?' : "ab"[random() % 2];
    const auto block = static_cast<std::int64_t>(random() % 20);
    const auto offset = static_cast<std::int64_t>(random() % 2);
    extents.push_back(extent(volume, partition, block, offset, random() % 2 == 0 ? zoo_ : ant_));
  }
  std::vector<Extent*> sorted;
  for (Extent& each : extents) sorted.push_back(&each);
  std::vector<Extent*> expected = sorted;
  std::stable_sort(expected.begin(), expected.end(),
                   [](const Extent* a, const Extent* b) { return extentLess(*a, *b); });
  sortInTapeOrder(sorted);
  EXPECT_EQ(sorted, expected);
}

TEST(NumberTable, findsEveryNumberHoweverTheHashesFall) {
  constexpr std::size_t kCount = 3000;
  for (const std::size_t stride : {std::size_t{0}, std::size_t{1}, std::size_t{4096}, std::size_t{1} << 40}) {
    NumberTable table;
    const auto find = [&](std::size_t number) {
      return table.find(number * stride, [&](NumberTable::Number found) { return found == number; });
    };
    for (std::size_t i = 0; i < kCount; ++i) {
      ASSERT_EQ(find(i), NumberTable::kNone) << stride;
      table.add(i * stride, static_cast<NumberTable::Number>(i));
    }
    for (std::size_t i = 0; i < kCount; ++i) ASSERT_EQ(find(i), i) << stride;
  }
}

TEST(GetEA, limitsAndLookUp) {
  test::CapturedLog captured;
  struct stat status {};
  FileC file("/s", "/d", status);
  const std::string longName(255, 'n');
  const std::string longValue(256, 'v');
  file.eaList.add("user.a", "1", 1);
  file.eaList.add("user.empty", nullptr, 0);
  file.eaList.add(longName, longValue.data(), 255);
  file.eaList.add("user.long", longValue.data(), 256);
  file.eaList.add("user.binary", "x\0y", 3);
  struct Row {
    std::string name;
    int result;
    std::string value;
    std::string message;
  };
  Logger& log = captured.logger();
  for (const Row& row : std::vector<Row>{
           {"user.a", 0, "1", log.format(msg::kGetEaFound, "1")},
           {longName, 0, longValue.substr(1), log.format(msg::kGetEaFound, longValue.substr(1))},
           {"user.binary", 0, "x", log.format(msg::kGetEaFound, "x")},
           {"user.none", 1, "", log.format(msg::kGetEaNotFound)},
           {"user.empty", 1, "", log.format(msg::kEaNameNotConverted)},
           {"", 1, "", log.format(msg::kEaNameNotConverted)},
           {"user.long", 1, "", log.format(msg::kEaTooLong, "user.long", 9)},
           {std::string(256, 'n'), 1, "", log.format(msg::kEaTooLong, std::string(256, 'n'), 256)},
       }) {
    captured.clear();
    std::string value;
    EXPECT_EQ(file.getEA(row.name, value), row.result) << row.name;
    if (row.result == 0) {
      EXPECT_EQ(value, row.value) << row.name;
    }
    EXPECT_TRUE(captured.logText().ends_with(row.message + "\n")) << captured.logText();
  }
}

TEST(EaList, keepsOrderAndBytes) {
  EaList list;
  EXPECT_EQ(list.begin(), list.end());
  const std::string big(70000, '\0');
  list.add("user.z", "z\0", 2);
  list.add("user.a", nullptr, 0);
  list.add("user.big", big.data(), big.size());
  list.shrinkToFit();
  std::vector<std::pair<std::string, std::string>> seen;
  for (const ExtendedAttr& attr : list) {
    EXPECT_EQ(attr.value == nullptr, attr.valueLength == 0);
    seen.emplace_back(attr.name, attr.value == nullptr ? "" : std::string(attr.value, attr.valueLength));
  }
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"user.z", std::string("z\0", 2)}, {"user.a", ""}, {"user.big", big}};
  EXPECT_EQ(seen, expected);
}

}  // namespace
}  // namespace tamrix
