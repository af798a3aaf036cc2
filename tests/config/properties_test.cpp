#include "config/properties.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <string>

#include "tests/support/captured_log.h"

namespace tamrix {
namespace {

TEST(Properties, relativePathsBecomeAbsolute) {
  const test::CapturedLog captured;
  Properties store;
  ASSERT_TRUE(store.setDefaults());
  ASSERT_EQ(chdir("/usr/lib"), 0);
  ASSERT_EQ(setenv("HOME", "/home/op", 1), 0);
  const std::map<std::string, std::string> rows = {{"\"/x\"", "\"/x\""},        {"\"dir\"", "/usr/lib/dir\""},
                                                   {"data", "/usr/lib/data"},   {"../up", "/usr/lib"},
                                                   {"~/data", "/home/op/data"}, {"~user", "/home/op"},
                                                   {"", "/usr/lib/"},           {"a b\n", "/usr/lib/a b\n"}};
  for (const auto& [given, absolute] : rows) {
    ASSERT_EQ(store.addProperty("srcpath", given), 0);
    std::string value;
    EXPECT_EQ(store.updatePath("srcpath") + store.getProperty("srcpath", value), 0) << given;
    EXPECT_EQ(value, absolute) << given;
  }
  ASSERT_EQ(chdir("/"), 0);
}

}  // namespace
}  // namespace tamrix
