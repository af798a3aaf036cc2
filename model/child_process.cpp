#include "model/child_process.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <system_error>

namespace tamrix::model {

namespace {

constexpr int kNotStarted = 127;

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

// In the child: becomes the program.
[[noreturn]] void become(ChildSetup& setup) {
  for (const auto& [number, stand] : setup.descriptors) {
    if (stand < 0 ? close(number) != 0 : dup2(stand, number) < 0) _exit(kNotStarted);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  for (const int number : {SIGPIPE, SIGXFSZ, SIGINT, SIGTERM, SIGHUP}) std::signal(number, SIG_DFL);
  for (const auto& [name, value] : setup.environment) {
    if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
  std::vector<char*> argv;
  for (std::string& word : setup.words) argv.push_back(word.data());
  argv.push_back(nullptr);
  if (!setup.prepare || setup.prepare()) execvp(argv[0], argv.data());
  _exit(kNotStarted);
}

}  // namespace

ChildProcess::ChildProcess(ChildSetup setup) {
  pid_ = fork();
  if (pid_ == 0) become(setup);
  if (pid_ > 0) handle_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  const int error = errno;
  if (handle_ >= 0) return;
  signal(SIGKILL);
  throw std::system_error(error, std::generic_category(), "starting a process");
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) {
    signal(SIGKILL);
    wait();
  }
  close(handle_);
}

void ChildProcess::signal(int number) const {
  if (pid_ > 0) kill(pid_, number);
}

bool ChildProcess::hasPendingSignal() const {
  std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("State:\tZ")) return false;
    if (line.starts_with("ShdPnd:")) return line.find_first_not_of("0\t", 7) != std::string::npos;
  }
  return false;
}

ChildEnd ChildProcess::wait() {
  int status = 0;
  rusage usage{};
  pid_t ended = wait4(pid_, &status, 0, &usage);
  while (ended < 0 && errno == EINTR) ended = wait4(pid_, &status, 0, &usage);
  pid_ = -1;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status),
          seconds(usage.ru_utime) + seconds(usage.ru_stime), static_cast<double>(usage.ru_maxrss) * 1024};
}

}  // namespace tamrix::model
