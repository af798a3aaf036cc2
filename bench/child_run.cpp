#include "bench/child_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>
#include <system_error>

namespace tamrix::bench {

namespace {

double seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

ChildRun runChild(std::vector<std::string> words, const std::string& log) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t child = 0;
  const auto begun = std::chrono::steady_clock::now();
  const int error = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) throw std::system_error(error, std::generic_category(), words[0]);
  ChildRun run;
  rusage usage{};
  if (wait4(child, &run.status, 0, &usage) != child) {
    throw std::system_error(errno, std::generic_category(), "wait4");
  }
  run.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
  run.cpu = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  run.peak = static_cast<double>(usage.ru_maxrss) * 1024;
  std::ifstream file(log);
  run.text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return run;
}

double median(std::vector<double> figures) {
  std::sort(figures.begin(), figures.end());
  return figures[figures.size() / 2];
}

}  // namespace tamrix::bench
