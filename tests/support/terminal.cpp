#include "tests/support/terminal.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vterm.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <regex>

namespace tamrix::test {

namespace {

constexpr int kRows = 60;
constexpr int kDeadlineMs = 60'000;

void require(bool succeeded, const char* what) {
  if (succeeded) return;
  perror(what);
  std::abort();
}

}  // namespace

Terminal::Terminal(int columns, std::map<std::string, std::optional<std::string>> environment)
    : columns_(columns), screen_(vterm_new(kRows, columns)) {
  vterm_set_utf8(screen_, 1);
  vterm_screen_reset(vterm_obtain_screen(screen_), 1);
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  require(grantpt(master_) == 0 && unlockpt(master_) == 0, "pty");
  const int slave = open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC);
  require(slave >= 0, "terminal");
  resize(columns);
  environment.insert({{"PS1", "$ "}, {"ENV", std::nullopt}, {"TERM", "xterm"}, {"LC_ALL", "C.UTF-8"}});
  model::ChildSetup setup{.words = {"dash", "-i"}, .environment = std::move(environment)};
  for (const int number : {0, 1, 2}) setup.descriptors[number] = slave;
  setup.prepare = [this] {
    return setsid() > 0 && ioctl(STDIN_FILENO, TIOCSCTTY, 0) == 0 && chdir(dir_.path().c_str()) == 0;
  };
  shell_.emplace(std::move(setup));
  close(slave);
}

Terminal::~Terminal() {
  close(master_);  // hangs up
  vterm_free(screen_);
}

void Terminal::command(const std::string& line) {
  EXPECT_TRUE(hasPrompt());
  ++commands_;
  type(line + "\n");
}

void Terminal::run(const std::vector<std::string>& args) {
  std::ofstream script(dir_ / "run");
  script << "#!/bin/sh\necho $$ >pid\nexec '" << TAMRIX_PROGRAM << "'";
  for (const std::string& arg : args) script << " '" << arg << "'";
  script.close();
  std::filesystem::permissions(dir_ / "run", std::filesystem::perms::owner_all);
  command("./run");
}

void Terminal::type(const std::string& keys) const {
  (void)!write(master_, keys.data(), keys.size());  // nothing but a few keys
}

void Terminal::resize(int columns) {
  columns_ = columns;
  vterm_set_size(screen_, kRows, columns);
  const winsize size{kRows, static_cast<unsigned short>(columns), 0, 0};
  require(ioctl(master_, TIOCSWINSZ, &size) == 0, "size");
}

void Terminal::signal(int number) const { kill(std::atoi(readFile(dir_ / "pid").c_str()), number); }

bool Terminal::shows(const std::string& pattern, int times) {
  return waitFor([&] { return count(pattern) >= times; });
}

bool Terminal::hasPrompt() {
  return waitFor([&] { return count("\\$( .*)?") == commands_ + 1 && rows().back() == "$"; });
}

template <class Condition>
bool Terminal::waitFor(Condition condition) {
  while (!condition()) {
    pollfd waited{master_, POLLIN, 0};
    std::array<char, 4096> piece{};
    const bool came = poll(&waited, 1, kDeadlineMs) == 1;
    const ssize_t n = came ? read(master_, piece.data(), piece.size()) : -1;
    if (n <= 0) {
      ADD_FAILURE() << "On the screen:\n" << testing::PrintToString(rows());
      return false;
    }
    vterm_input_write(screen_, piece.data(), static_cast<std::size_t>(n));
  }
  return true;
}

std::vector<std::string> Terminal::rows() const {
  const VTermScreen* const screen = vterm_obtain_screen(screen_);
  std::vector<std::string> found = {""};
  for (int row = 0; row < kRows; ++row) {
    std::array<char, 4096> text{};
    const std::size_t size =
        vterm_screen_get_text(screen, text.data(), text.size(), {row, row + 1, 0, columns_});
    const std::string_view shown(text.data(), size);
    found.emplace_back(shown.substr(0, shown.find_last_not_of(' ') + 1));
  }
  while (found.size() > 1 && found.back().empty()) found.pop_back();
  return found;
}

int Terminal::count(const std::string& pattern) const {
  const std::regex wanted(pattern);
  const std::vector<std::string> all = rows();
  return static_cast<int>(std::count_if(
      all.begin(), all.end(), [&](const std::string& row) { return std::regex_match(row, wanted); }));
}

}  // namespace tamrix::test
