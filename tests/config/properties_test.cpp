#include "config/properties.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/captured_log.h"

namespace tamrix {
namespace {

using test::CapturedLog;

std::string stored(const Properties& store, const std::string& key) {
  std::string value;
  return store.getProperty(key, value) == 0 ? value : "<absent>";
}

class PropertiesTest : public testing::Test {
 protected:
  PropertiesTest() { EXPECT_TRUE(store_.setDefaults()); }

  int parse(const std::vector<const char*>& arguments) {
    std::vector<const char*> argv = {"tamrix"};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return store_.parseArgs(static_cast<int>(argv.size()), argv.data());
  }

  CapturedLog captured_;
  Properties store_;
};

TEST_F(PropertiesTest, defaultsAreTheTwelveOptionsInKeyOrder) {
  store_.listDefaults();
  EXPECT_EQ(captured_.outputText(),
            "List of properties and their default settings\n"
            " batchfile=\n buffer-size=128KB\n dstpath=.\n ignore-vendor-check=disable\n"
            " interactive=disable\n loglevel=INFO\n recursive=disable\n sparse=disable\n srcpath=.\n"
            " srcspec=\n timer=disable\n total-buffer-size=400MB\n"
            "End of List\n");
}

TEST_F(PropertiesTest, onlyKeysAndValuesOfTheTableAreStored) {
  EXPECT_EQ(store_.addProperty("LogLevel", "DEBUG"), 0);
  EXPECT_EQ(stored(store_, "loglevel"), "DEBUG");
  EXPECT_EQ(store_.addProperty("loglevel", "debug"), 1);
  EXPECT_EQ(captured_.count(msg::kPropInvalid, "loglevel", "debug"), 1);
  EXPECT_EQ(stored(store_, "loglevel"), "DEBUG");

  EXPECT_EQ(store_.addProperty("Verify", "warn"), 1);
  EXPECT_EQ(captured_.count(msg::kPropInvalid, "verify", "warn"), 1);
  store_.lock();
  EXPECT_EQ(store_.addProperty("Verify", "warn"), 1);
  EXPECT_EQ(captured_.count(msg::kPropUnrecognized, "verify"), 1);
  EXPECT_EQ(store_.addProperty("srcspec", "*"), 0);
}

TEST_F(PropertiesTest, aNameOf99CharactersPassesTheLengthTestAndOneOf100DoesNot) {
  EXPECT_EQ(store_.addProperty(std::string(99, 'n'), "v"), 1);
  EXPECT_EQ(captured_.count(msg::kPropInvalid, std::string(99, 'n'), "v"), 1);
  EXPECT_EQ(store_.addProperty(std::string(100, 'N'), "v"), 1);
  EXPECT_EQ(captured_.count(msg::kPropNameTooLong, std::string(100, 'N'), 99), 1);
}

TEST_F(PropertiesTest, lookUpFormsDifferOnEmptyValues) {
  std::string text = "before";
  EXPECT_EQ(store_.getProperty("srcspec", text), 0);
  EXPECT_EQ(text, "");
  const char* pointer = nullptr;
  EXPECT_EQ(store_.getProperty("srcspec", pointer), -1);
  EXPECT_STREQ(pointer, "");
  EXPECT_EQ(store_.getProperty("nothing", pointer), -1);
  EXPECT_EQ(pointer, nullptr);
  std::int32_t number = 7;
  EXPECT_EQ(store_.getProperty("nothing", number), -1);
  EXPECT_EQ(number, 0);
  EXPECT_EQ(store_.getProperty("total-buffer-size", number), 0);
  EXPECT_EQ(number, 400);
  EXPECT_EQ(store_.testProperty("recursive", "Disable"), 0);
  EXPECT_EQ(store_.testProperty("recursive", "disable"), 1);
}

TEST_F(PropertiesTest, argumentsAreStoredOrRefused) {
  struct Row {
    const char* argument;
    int result;
    const char* key;
    const char* value;  // stored after a good one, reported after a refused one
  };
  for (const Row& row : std::vector<Row>{
           {"-recursive", 0, "recursive", "enable"},
           {"-recursive=disable", 0, "recursive", "disable"},
           {"-Recursive=enable", 0, "recursive", "enable"},
           {"-Recursive", 1, "Recursive", ""},
           {"srcspec=x", 0, "srcspec", "x"},
           {"-srcspec=a=b", 0, "srcspec", "a=b"},
           {"-srcspec=", 0, "srcspec", ""},
           {"-srcpath", 1, "srcpath", ""},
           {"--srcpath=/x", 1, "-srcpath", "/x"},
           {"-sparse=yes", 1, "sparse", "yes"},
           {"-bogus", 1, "bogus", ""},
           {"-=x", 1, "", "x"},
       }) {
    Properties fresh;
    ASSERT_TRUE(fresh.setDefaults());
    fresh.lock();
    captured_.clear();
    const std::vector<const char*> argv = {"tamrix", row.argument};
    EXPECT_EQ(fresh.parseArgs(2, argv.data()), row.result) << row.argument;
    if (row.result == 0) {
      EXPECT_EQ(stored(fresh, row.key), row.value) << row.argument;
    } else {
      EXPECT_EQ(captured_.outputCount(msg::kPropArgRefused, row.key, row.value), 1) << row.argument;
      EXPECT_EQ(captured_.outputCount(msg::kPropArgHint), 1) << row.argument;
    }
  }
}

TEST_F(PropertiesTest, longArgumentsAreNotCut) {
  const std::string path = "/" + std::string(5000, 'p');
  ASSERT_EQ(parse({("-srcpath=" + path).c_str()}), 0);
  EXPECT_EQ(stored(store_, "srcpath"), path);
}

TEST_F(PropertiesTest, helpAndVersionMatchLooselyAndEndTheRun) {
  for (const char* argument : {"-h", "-HELP", "-helpme", "-helpful=1", "-", "", "h"}) {
    captured_.clear();
    EXPECT_EQ(parse({argument}), 1) << argument;
    EXPECT_NE(captured_.outputText().find("Usage: tamrix [OPTIONS]\nOptions:\n-srcpath=[path]     Source"),
              std::string::npos)
        << argument;
  }
  for (const char* argument : {"-v", "-Ver", "-versions"}) {
    captured_.clear();
    EXPECT_EQ(parse({argument}), 1) << argument;
    EXPECT_EQ(captured_.outputText(), "VOQ Tamrix version 1.1.1.1 revision 1000\n") << argument;
  }
  captured_.clear();
  EXPECT_EQ(parse({}), 1);
  EXPECT_TRUE(captured_.outputText().ends_with("    tamrix -batchfile=batch.xml\n"));
  EXPECT_EQ(store_.parseArgs(0, nullptr), 0);
}

TEST_F(PropertiesTest, theFirstRefusedArgumentEndsTheParseAndWhatWasStoredStays) {
  EXPECT_EQ(parse({"-srcspec=a", "-bogus=1", "-dstpath=/x"}), 1);
  EXPECT_EQ(stored(store_, "srcspec"), "a");
  EXPECT_EQ(stored(store_, "dstpath"), ".");
}

class UpdatePath : public PropertiesTest {
 protected:
  void SetUp() override {
    ASSERT_EQ(chdir("/usr/lib"), 0);
    ASSERT_EQ(setenv("HOME", "/home/op", 1), 0);
  }
  void TearDown() override { ASSERT_EQ(chdir("/"), 0); }
};

TEST_F(UpdatePath, rulesForRelativePaths) {
  struct Row {
    const char* given;
    const char* absolute;
  };
  for (const Row& row : std::vector<Row>{
           {"/x", "/x"},
           {"\"/x\"", "\"/x\""},
           {"data", "/usr/lib/data"},
           {"./a/b", "/usr/lib/a/b"},
           {".", "/usr/lib"},
           {"./", "/usr/lib"},
           {"..", "/usr/lib"},
           {"../up", "/usr/lib"},
           {".hidden", "/usr/lib"},
           {"\"dir\"", "/usr/lib/dir\""},
           {"~", "/home/op"},
           {"~/data", "/home/op/data"},
           {"~user", "/home/op"},
           {"~/", "/home/op"},
           {"", "/usr/lib/"},
           {"a b\n", "/usr/lib/a b\n"},
       }) {
    ASSERT_EQ(store_.addProperty("srcpath", row.given), 0);
    EXPECT_EQ(store_.updatePath("srcpath"), 0) << row.given;
    EXPECT_EQ(stored(store_, "srcpath"), row.absolute) << row.given;
  }
}

TEST_F(UpdatePath, withoutAHomeATildeIsRefusedAndTheRootNotWrittenTo) {
  unsetenv("HOME");
  ASSERT_EQ(store_.addProperty("dstpath", "~/data"), 0);
  EXPECT_EQ(store_.updatePath("dstpath"), 1);
  EXPECT_EQ(captured_.count(msg::kPropHomeNotSet, "~/data"), 1);
}

}  // namespace
}  // namespace tamrix
