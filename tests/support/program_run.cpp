#include "tests/support/program_run.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <sstream>

namespace tamrix::test {

namespace {

// Far more than any run of a test takes, so that a slow machine fails nothing.
constexpr std::chrono::seconds kDeadline{120};

void require(bool succeeded, const char* what) {
  if (succeeded) return;
  perror(what);
  std::abort();
}

void closeIfOpen(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

int memoryFile(std::string_view content) {
  const int fd = memfd_create("input", MFD_CLOEXEC);
  require(write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size()), "memfd");
  lseek(fd, 0, SEEK_SET);
  return fd;
}

// Appends what can be read to `to`. Closes the descriptor at the end.
void drain(int& fd, std::string& to) {
  std::array<char, 65536> piece{};
  const ssize_t n = read(fd, piece.data(), piece.size());
  if (n > 0) {
    to.append(piece.data(), static_cast<std::size_t>(n));
  } else if (n == 0 || errno != EINTR) {
    closeIfOpen(fd);
  }
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> result;
  for (std::string& one : texts) result.push_back(one.data());
  result.push_back(nullptr);
  return result;
}

std::vector<std::string> environmentWith(const std::map<std::string, std::optional<std::string>>& changes) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view one = *entry;
    if (!changes.contains(std::string(one.substr(0, one.find('='))))) result.emplace_back(one);
  }
  for (const auto& [name, value] : changes) {
    if (value) result.push_back(name + "=" + *value);
  }
  return result;
}

// In the child: everything that is not a stream. Signals first get their ordinary actions.
void enterSurroundings(const ProgramOptions& options) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int number : {SIGPIPE, SIGXFSZ, SIGINT, SIGTERM, SIGHUP}) std::signal(number, SIG_DFL);
  for (const int number : options.ignoredSignals) std::signal(number, SIG_IGN);
  for (const auto& [resource, value] : options.limits) {
    const rlimit limit{value, value};
    if (setrlimit(resource, &limit) != 0) _exit(126);
  }
  umask(options.umask);
  prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
  prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
}

}  // namespace

int ProgramRun::count(std::string_view line) const {
  int found = 0;
  std::istringstream in(out + "\n" + err);  // a question ends no line
  for (std::string one; std::getline(in, one);) found += one == line ? 1 : 0;
  return found;
}

std::vector<std::string> ProgramRun::linesAfter(std::string_view prefix) const {
  std::vector<std::string> lines;
  std::istringstream in(err);
  for (std::string line; std::getline(in, line);)
    if (line.starts_with(prefix)) lines.push_back(line.substr(prefix.size()));
  return lines;
}

std::ostream& operator<<(std::ostream& stream, const ProgramRun& run) {
  constexpr std::size_t kShown = 4000;
  return stream << "status " << run.status << "\n--- output\n"
                << run.out.substr(0, kShown) << "--- log\n"
                << run.err.substr(0, kShown) << "---\n";
}

RunningProgram::RunningProgram(const std::vector<std::string>& args, const ProgramOptions& options)
    : deadline_(std::chrono::steady_clock::now() + kDeadline) {
  std::signal(SIGPIPE, SIG_IGN);  // a child that has ended reads nothing more
  // Findings must not pass for the program's own status 1.
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS"}) setenv(name, "exitcode=99", 0);
  std::array<std::array<int, 2>, 3> pipes{};
  for (auto& ends : pipes) require(pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
  Streams theirs = {pipes[0][0], pipes[1][1], pipes[2][1]};
  input_ = pipes[0][1];
  out_ = pipes[1][0];
  err_ = pipes[2][0];
  if (options.input) {
    close(theirs[0]);
    closeIfOpen(input_);
    theirs[0] = memoryFile(*options.input);
  }
  start(args, options, theirs);
  for (const int fd : theirs) close(fd);
}

void RunningProgram::start(const std::vector<std::string>& args, const ProgramOptions& options,
                           const Streams& theirs) {
  std::vector<std::string> words = {"tamrix"};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<std::string> environment = environmentWith(options.environment);
  const std::vector<char*> argv = pointers(words);
  const std::vector<char*> envp = pointers(environment);
  pid_ = fork();
  require(pid_ >= 0, "fork");
  if (pid_ == 0) {
    for (int number = 0; number < 3; ++number) {
      const auto other = options.descriptors.find(number);
      const int fd =
          other != options.descriptors.end() ? other->second : theirs.at(static_cast<std::size_t>(number));
      if (fd < 0 ? close(number) != 0 : dup2(fd, number) < 0) _exit(126);
    }
    enterSurroundings(options);
    execve(TAMRIX_PROGRAM, argv.data(), envp.data());
    _exit(127);
  }
  process_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  require(process_ >= 0, "pidfd_open");
}

RunningProgram::~RunningProgram() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  for (int* fd : {&process_, &input_, &out_, &err_}) closeIfOpen(*fd);
}

void RunningProgram::send(std::string_view text) const {
  (void)!write(input_, text.data(), text.size());  // a line; the program may have ended
}

void RunningProgram::signal(int number) const {
  if (pid_ > 0) kill(pid_, number);
}

bool RunningProgram::waitForText(std::string_view text) {
  do {
    if (run_.out.find(text) != std::string::npos || run_.err.find(text) != std::string::npos) return true;
  } while (readMore());
  return false;
}

const ProgramRun& RunningProgram::wait() {
  while (readMore()) {
  }
  for (const std::string_view finding : {"Sanitizer:", "runtime error:"}) {
    EXPECT_EQ(run_.err.find(finding), std::string::npos) << run_.err;
  }
  return run_;
}

// Waits for something to read. Returns false once the process has ended and everything is read.
bool RunningProgram::readMore() {
  if (pid_ < 0 && out_ < 0 && err_ < 0) return false;
  std::array<pollfd, 3> waited = {pollfd{out_, POLLIN, 0}, pollfd{err_, POLLIN, 0},
                                  pollfd{pid_ > 0 ? process_ : -1, POLLIN, 0}};
  using std::chrono::milliseconds;
  const auto left = std::chrono::duration_cast<milliseconds>(deadline_ - std::chrono::steady_clock::now());
  if (poll(waited.data(), waited.size(), static_cast<int>(std::max(left, milliseconds(0)).count())) == 0) {
    ADD_FAILURE() << "The program hangs: " << run_;
    kill(pid_, SIGKILL);
    reap();
    closeIfOpen(out_);
    closeIfOpen(err_);
    return false;
  }
  if (waited[0].revents != 0) drain(out_, run_.out);
  if (waited[1].revents != 0) drain(err_, run_.err);
  if (waited[2].revents != 0) reap();
  return true;
}

void RunningProgram::reap() {
  int status = 0;
  require(waitpid(pid_, &status, 0) == pid_, "waitpid");
  pid_ = -1;
  run_.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

ProgramRun runProgram(const std::vector<std::string>& args, ProgramOptions options) {
  if (!options.input) options.input = "";
  RunningProgram program(args, options);
  return program.wait();
}

const Logger& catalogue() {
  static const std::unique_ptr<Logger> texts = [] {
    auto made = std::make_unique<Logger>(-1, -1);
    require(made->LoadMessage("tamrix") == 0 && made->init(kUrgent) == 0, "catalogue");
    return made;
  }();
  return *texts;
}

}  // namespace tamrix::test
