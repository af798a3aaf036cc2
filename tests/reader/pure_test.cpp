// The pieces of the listing that need no files: wildcards, path texts, the table behind the look-up of paths.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reader/number_table.h"
#include "reader/path_identity.h"
#include "reader/wildcard.h"

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
  EXPECT_TRUE(wildcardMatch("*", ".hidden"));
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

}  // namespace
}  // namespace tamrix
