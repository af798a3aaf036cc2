#include "tests/support/program_run.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <thread>

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

// In the child. Returns whether all could be had.
bool enterSurroundings(const ProgramOptions& options) {
  bool entered = true;
  for (const int number : options.ignoredSignals) std::signal(number, SIG_IGN);
  for (const auto& [resource, value] : options.limits) {
    const rlimit limit{value, value};
    entered = setrlimit(resource, &limit) == 0 && entered;
  }
  umask(options.umask);
  prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
  prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
  return entered;
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
  std::array<int, 3> theirs = {pipes[0][0], pipes[1][1], pipes[2][1]};
  input_ = pipes[0][1];
  outputs_ = {pipes[1][0], pipes[2][0]};
  if (options.input) {
    close(theirs[0]);
    theirs[0] = memfd_create("input", MFD_CLOEXEC);
    require(pwrite(theirs[0], options.input->data(), options.input->size(), 0) >= 0, "memfd");
  }
  model::ChildSetup setup{.words = {options.program.empty() ? TAMRIX_PROGRAM : options.program},
                          .environment = options.environment};
  setup.words.insert(setup.words.end(), args.begin(), args.end());
  for (int number = 0; number < 3; ++number) setup.descriptors[number] = theirs.at(std::size_t(number));
  for (const auto& [number, other] : options.descriptors) setup.descriptors[number] = other;
  setup.prepare = [&options] { return enterSurroundings(options); };
  child_.emplace(std::move(setup));
  for (const int fd : theirs) close(fd);
}

RunningProgram::~RunningProgram() {
  for (int* fd : {&input_, &outputs_[0], &outputs_[1]}) closeIfOpen(*fd);
}

void RunningProgram::send(std::string_view text) const {
  (void)!write(input_, text.data(), text.size());  // a line; the program may have ended
}

void RunningProgram::interrupt(int number) const {
  signal(number);
  while (child_->hasPendingSignal()) std::this_thread::yield();
}

bool RunningProgram::waitForText(std::string_view text) {
  std::size_t searched[2] = {0, 0};
  do {
    for (const std::string* const output : {&run_.out, &run_.err}) {
      std::size_t& from = searched[output == &run_.err ? 1 : 0];
      if (output->find(text, from) != std::string::npos) return true;
      from = output->size() - std::min(output->size(), text.size());  // it may have come in part
    }
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
  if (!running_ && outputs_[0] < 0 && outputs_[1] < 0) return false;
  std::array<pollfd, 3> waited = {pollfd{outputs_[0], POLLIN, 0}, pollfd{outputs_[1], POLLIN, 0},
                                  pollfd{running_ ? child_->handle() : -1, POLLIN, 0}};
  using std::chrono::milliseconds;
  const auto left = std::chrono::duration_cast<milliseconds>(deadline_ - std::chrono::steady_clock::now());
  if (poll(waited.data(), waited.size(), static_cast<int>(std::max(left, milliseconds(0)).count())) == 0) {
    ADD_FAILURE() << "The program hangs: " << run_;
    signal(SIGKILL);
    for (int& fd : outputs_) closeIfOpen(fd);
    waited = {pollfd{}, pollfd{}, pollfd{-1, POLLIN, POLLIN}};
  }
  if (waited[0].revents != 0) drain(outputs_[0], run_.out);
  if (waited[1].revents != 0) drain(outputs_[1], run_.err);
  if (running_ && waited[2].revents != 0) {
    run_.status = child_->wait().status;
    running_ = false;
  }
  return true;
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
