#include "config/properties.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/support/captured_log.h"

namespace tamrix {
namespace {

std::string stored(const Properties& store, const std::string& key) {
  std::string value;
  return store.getProperty(key, value) == 0 ? value : "<absent>";
}

TEST(Properties, argumentsAreStoredOrRefused) {
  const std::string path = "/" + std::string(5000, 'p');
  const std::string longPath = "-srcpath=" + path;
  const struct {
    const char* argument;
    int result;
    const char* key;
    const char* value;  // stored after a good one, reported after a refused one
  } rows[] = {
      {"-recursive", 0, "recursive", "enable"},
      {"-Recursive=disable", 0, "recursive", "disable"},
      {"-Recursive", 1, "Recursive", ""},
      {"srcspec=x", 0, "srcspec", "x"},
      {"-srcspec=a=b", 0, "srcspec", "a=b"},
      {"-srcspec=", 0, "srcspec", ""},
      {longPath.c_str(), 0, "srcpath", path.c_str()},
      {"-srcpath", 1, "srcpath", ""},
      {"--srcpath=/x", 1, "-srcpath", "/x"},
      {"-sparse=yes", 1, "sparse", "yes"},
      {"-=x", 1, "", "x"},
  };
  for (const auto& row : rows) {
    const test::CapturedLog captured;
    Properties store;
    ASSERT_TRUE(store.setDefaults());
    store.lock();
    // What follows a refused argument is not looked at.
    const char* argv[] = {"tamrix", row.argument, "-alsobogus"};
    EXPECT_EQ(store.parseArgs(row.result == 0 ? 2 : 3, argv), row.result) << row.argument;
    EXPECT_EQ(captured.count(msg::kPropertiesArgRefused, row.key, row.value), row.result) << row.argument;
    EXPECT_EQ(captured.count(msg::kPropertiesArgHint), row.result) << row.argument;
    EXPECT_TRUE(row.result == 1 || stored(store, row.key) == row.value) << row.argument;
  }
}

TEST(Properties, relativePathsBecomeAbsolute) {
  const test::CapturedLog captured;
  Properties store;
  ASSERT_TRUE(store.setDefaults());
  ASSERT_EQ(chdir("/usr/lib"), 0);
  ASSERT_EQ(setenv("HOME", "/home/op", 1), 0);
  const std::pair<const char*, const char*> rows[] = {
      {"/x", "/x"},
      {"\"/x\"", "\"/x\""},
      {"data", "/usr/lib/data"},
      {"./a/b", "/usr/lib/a/b"},
      {"./", "/usr/lib"},
      {"../up", "/usr/lib"},
      {".hidden", "/usr/lib"},
      {"\"dir\"", "/usr/lib/dir\""},
      {"~", "/home/op"},
      {"~/data", "/home/op/data"},
      {"~user", "/home/op"},
      {"", "/usr/lib/"},
      {"a b\n", "/usr/lib/a b\n"},
  };
  for (const auto& [given, absolute] : rows) {
    ASSERT_EQ(store.addProperty("srcpath", given), 0);
    EXPECT_EQ(store.updatePath("srcpath"), 0) << given;
    EXPECT_EQ(stored(store, "srcpath"), absolute) << given;
  }
  ASSERT_EQ(chdir("/"), 0);
}

}  // namespace
}  // namespace tamrix
