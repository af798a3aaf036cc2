// What a person at a terminal sees of a run: the last line, what stands above it, and what is left at the
// end.
#include "tests/support/terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

using test::Terminal;

// The last line of a run that stands still.
const std::string kStill = "25%.* waiting for.*";

// A run that has copied one file of two and stands still at the second, whose source can't be opened until
// the lease on it is given back.
class TerminalTest : public testing::Test {
 protected:
  TerminalTest() {
    sigset_t asked;
    sigemptyset(&asked);
    sigaddset(&asked, SIGIO);  // somebody wants the file
    pthread_sigmask(SIG_BLOCK, &asked, nullptr);
  }
  ~TerminalTest() override { close(lease_); }
  void SetUp() override {
    if (fcntl(lease_, F_SETLEASE, F_WRLCK) != 0) GTEST_SKIP() << "no leases here";
  }

  // Returns whether it stands still, with `pattern` on the screen.
  [[nodiscard]] bool standsStill(Terminal& terminal, const std::vector<std::string>& more = {},
                                 const std::string& pattern = kStill) const {
    giveBack();
    EXPECT_EQ(fcntl(lease_, F_SETLEASE, F_WRLCK), 0);
    terminal.run(scene_.args(more));
    return terminal.shows(pattern);
  }
  void giveBack() const { fcntl(lease_, F_SETLEASE, F_UNLCK); }

  const CopyScene scene_;
  const std::string a_ = scene_.addSource("a", std::string(2500, 'a'));
  const std::string b_ = scene_.addSource("b\x1b[1m\n\xe5\xae\xbd\xff and more", std::string(7500, 'b'));

 private:
  const int lease_ = open(b_.c_str(), O_RDWR | O_CLOEXEC);
};

TEST_F(TerminalTest, theLastLineFitsAndFollowsTheSize) {
  const std::string start = R"(25% 2\.5/10\.0 kB, waiting for the source \d+ s, 1/2 files, ring 0%, )";
  const std::string name = R"(b\\x1b\[1m\\x0a宽\\xff and more)";
  Terminal terminal(200);
  EXPECT_TRUE(standsStill(terminal, {}, start + name));
  for (const auto& [columns, line] : std::vector<std::pair<int, std::string>>{
           {80, start + R"(b\\x1b.{0,12})"}, {20, "25%, waiting for"}, {200, start + name}}) {
    terminal.resize(columns);
    EXPECT_TRUE(terminal.shows(line)) << columns;
    EXPECT_EQ(terminal.count("25%.*"), 1) << columns << testing::PrintToString(terminal.rows());
  }
  giveBack();
  EXPECT_TRUE(terminal.hasPrompt());
}

// What stands on the screen in the end is what a run without a last line leaves there, and the figures.
TEST_F(TerminalTest, linesAboveTheLastOneAreWhatTheyAreWithout) {
  scene_.addSource("c", "");
  std::filesystem::create_directory(scene_.destination("c"));  // ends the run
  for (const char* level : {"-loglevel=INFO", "-loglevel=WARNING"}) {
    Terminal watched(200);
    Terminal unwatched(200, {{"TAMRIX_PROGRESS", "never"}});
    EXPECT_TRUE(standsStill(watched, {level}));
    giveBack();
    EXPECT_TRUE(watched.hasPrompt());
    unwatched.run(scene_.args({level}));
    EXPECT_TRUE(unwatched.hasPrompt());
    std::vector<std::string> lines = watched.rows();
    EXPECT_EQ(std::erase_if(lines,
                            [](const std::string& line) { return line.starts_with("Total: 10.0 kB in 2 "); }),
              1);
    EXPECT_EQ(lines, unwatched.rows());
  }
}

// Shows the same in place of the last line, as often as it is asked.
TEST_F(TerminalTest, aTerminalThatCannotEraseIsToldWhenItAsks) {
  Terminal terminal(80, {{"TERM", "dumb"}});
  Terminal clock(80);
  EXPECT_TRUE(standsStill(terminal, {}, "Copy .*a"));
  clock.run(scene_.args({"-dstpath=" + scene_.dir().path()}));
  EXPECT_TRUE(clock.shows(kStill));
  EXPECT_EQ(terminal.count("25%.*"), 0);
  terminal.signal(SIGUSR1);
  EXPECT_TRUE(terminal.shows(kStill));
  EXPECT_EQ(terminal.count("25%.*"), 1);
}

TEST_F(TerminalTest, aRunThatIsSuspendedOrInTheBackgroundLeavesTheScreenToOthers) {
  Terminal terminal(80);
  EXPECT_TRUE(standsStill(terminal));
  terminal.type("\x1a");
  EXPECT_TRUE(terminal.hasPrompt());
  EXPECT_EQ(terminal.count(kStill), 0);
  terminal.command("fg");
  EXPECT_TRUE(terminal.shows(kStill));
  terminal.type("\x1a");
  terminal.command("bg");
  EXPECT_TRUE(terminal.hasPrompt());
  terminal.signal(SIGUSR1);
  EXPECT_TRUE(terminal.shows("\\$ " + kStill));
  EXPECT_EQ(terminal.count(kStill), 0);
  terminal.type("fg\n");
  EXPECT_TRUE(terminal.shows(kStill));
}

TEST_F(TerminalTest, noEndLeavesAnythingBehind) {
  struct Row {
    std::string keys;
    std::vector<int> signals;
  };
  for (const auto& [keys, signals] : std::vector<Row>{
           {"\x03", {}}, {"\x1c", {}}, {"", {SIGTERM, SIGINT}}, {"", {SIGHUP, SIGHUP}}, {"", {SIGABRT}}}) {
    Terminal terminal(80);
    EXPECT_TRUE(standsStill(terminal));
    terminal.type(keys);
    for (const int number : signals) terminal.signal(number);
    EXPECT_TRUE(terminal.hasPrompt()) << keys;
    EXPECT_EQ(terminal.count(".*" + kStill), 0) << keys;
  }
}

TEST_F(TerminalTest, aQuestionHasTheScreenForItself) {
  const std::string question = "Tamrix: Overwrite '.*/target/a'.*";
  for (const auto& [answer, next] :
       std::vector<std::pair<std::string, std::string>>{{"n\n", "0%.*waiting for.*"},
                                                        {"\x04", "0%.*waiting for.*"},
                                                        {"\x03", text(msg::kMainStopping, SIGINT)}}) {
    scene_.removeCopies();
    scene_.addDestination("a");
    Terminal terminal(200);
    EXPECT_TRUE(standsStill(terminal, {"-interactive"}, question));
    terminal.signal(SIGUSR1);
    EXPECT_TRUE(terminal.shows("listing, .*"));
    EXPECT_TRUE(terminal.shows(question, 2));
    terminal.type("\x1a");
    terminal.command("fg");
    EXPECT_TRUE(terminal.shows(question, 3));
    terminal.type(answer);
    EXPECT_TRUE(terminal.shows(next));
    giveBack();
    EXPECT_TRUE(terminal.hasPrompt());
  }
}

}  // namespace
}  // namespace tamrix
