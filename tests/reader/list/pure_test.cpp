// The pieces of the listing that need no files: wildcards, order, path texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "reader/list/path_identity.h"
#include "reader/list/wildcard.h"
#include "reader/record/extent.h"
#include "reader/record/file_c.h"

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

TEST(WildcardMatch, agreesWithTheObviousMatcherOnAllShortTextsAndEndsSoon) {
  const std::vector<std::string> names = textsOver("ab", 5);
  for (const std::string& pattern : textsOver("ab*?", 5)) {
    for (const std::string& name : names) {
      ASSERT_EQ(wildcardMatch(pattern, name), obviousMatch(pattern, name)) << pattern << " / " << name;
    }
  }
  EXPECT_FALSE(wildcardMatch("*.dat", "x.DAT"));
  EXPECT_FALSE(wildcardMatch("[ab]", "a"));
  EXPECT_TRUE(wildcardMatch("\\*", "\\x"));
  std::string stars;
  for (int i = 0; i < 2000; ++i) stars += "*a";
  EXPECT_FALSE(wildcardMatch(stars + "b", std::string(20000, 'a')));
}

TEST(PathText, doubledSlashesAndDotsAreFoldedAndNothingElse) {
  for (const char* same : {"/a/b", "/a//b", "/a/./b", "/./a/././b/"}) {
    EXPECT_TRUE(samePathText(same, "/a/b")) << same;
    EXPECT_EQ(pathTextHash(same), pathTextHash("/a/b")) << same;
  }
  for (const char* other : {"/a/../a/b", "/ab", "/a/.b", "/a/b.", "/a/b/c", "/a", ""}) {
    EXPECT_FALSE(samePathText(other, "/a/b")) << other;
  }
  EXPECT_TRUE(samePathText("", "/"));
}

TEST(FilePath, readsAndComparesLikeItsText) {
  const std::vector<std::string> texts = textsOver("a/b", 4);
  for (const std::string& text : texts) {
    const FilePath path(text);
    ASSERT_EQ(path.text(), text);
    for (const std::string& other : texts) {
      ASSERT_EQ(path < FilePath(other, path), text < other) << text << ' ' << other;
      ASSERT_EQ(path == other, text == other) << text << ' ' << other;
    }
  }
}

TEST(ExtentOrder, isByVolumePartitionBlockOffsetAndByNameWithoutAPosition) {
  struct stat status {};
  FileC zoo({FilePath("/1/zoo"), {}}, status);
  FileC ant({FilePath("/2/ant"), {}}, status);
  const auto extent = [](std::string_view volume, char partition, std::int64_t block, std::int64_t offset,
                         FileC& file) {
    Extent made;
    std::ranges::copy(volume, made.volumeUuid.begin());
    made.partition = static_cast<signed char>(partition);
    made.startBlock = block;
    made.offset = offset;
    made.file = &file;
    return made;
  };
  const std::vector<Extent> ordered = {
      extent("", '?', 9, 0, ant),
      extent("", '?', 1, 0, zoo),
      extent("0-uuid", 'b', 900, 0, zoo),
      extent("1-uuid", '\xe4', 5, 0, zoo),  // compared as signed
      extent("1-uuid", '?', 9, 0, ant),
      extent("1-uuid", '?', 1, 0, zoo),
      extent("1-uuid", 'a', 900, 0, zoo),
      extent("1-uuid", 'b', -4, 0, zoo),
      extent("1-uuid", 'b', 20, 0, zoo),
      extent("1-uuid", 'b', 20, 7, ant),
      extent("1-uuid", 'b', 1LL << 40, 0, ant),
  };
  for (std::size_t i = 0; i < ordered.size(); ++i) {
    for (std::size_t j = 0; j < ordered.size(); ++j) {
      EXPECT_EQ(extentLess(ordered[i], ordered[j]), i < j) << i << ' ' << j;
    }
  }
  // On random records it is an order, and the one that they are sorted by.
  std::deque<FileC> files;
  for (const char* name :
       {"ant", "ant-hills-10", "ant-hills-11", "ant-hills", "ant-hill", "ant\xe4", "antler"}) {
    files.emplace_back(FilePair{FilePath(name), {}}, status);
  }
  std::minstd_rand random(1);
  std::vector<Extent> copies;
  for (int i = 0; i < 100; ++i) {
    copies.push_back(extent(random() % 2 == 0 ? "" : "1-uuid", "?a\0b"[random() % 4],
                            static_cast<std::int64_t>(random() % 3) - 1,
                            static_cast<std::int64_t>(random() % 2), files[random() % files.size()]));
  }
  std::vector<Extent*> sorted;
  for (Extent& copy : copies) sorted.push_back(&copy);
  std::vector<Extent*> expected = sorted;
  std::ranges::stable_sort(expected, [](const Extent* a, const Extent* b) { return extentLess(*a, *b); });
  ASSERT_TRUE(sortInTapeOrder(sorted, [] { return false; }));
  EXPECT_EQ(sorted, expected);
  for (const Extent& a : copies) {
    for (const Extent& b : copies) {
      ASSERT_FALSE(extentLess(a, b) && extentLess(b, a));
      const bool same = !extentLess(a, b) && !extentLess(b, a);
      for (const Extent& c : copies) {
        ASSERT_FALSE(extentLess(a, b) && extentLess(b, c) && !extentLess(a, c));
        ASSERT_TRUE(!same || extentLess(a, c) == extentLess(b, c));
      }
    }
  }
}

}  // namespace
}  // namespace tamrix
