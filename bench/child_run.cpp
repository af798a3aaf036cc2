#include "bench/child_run.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <system_error>

namespace tamrix::bench {

ChildRun runChild(const std::vector<std::string>& words, const std::string& log) {
  const int out = open("/dev/null", O_WRONLY | O_CLOEXEC);
  const int err = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (err < 0) throw std::system_error(errno, std::generic_category(), log);
  ChildRun run;
  const auto begun = std::chrono::steady_clock::now();
  run.end = model::ChildProcess({words, {{STDOUT_FILENO, out}, {STDERR_FILENO, err}}}).wait();
  run.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
  close(out);
  close(err);
  std::ifstream file(log);
  run.text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return run;
}

double median(std::vector<double> figures) {
  std::sort(figures.begin(), figures.end());
  return figures[figures.size() / 2];
}

void tell(const char* what, double reached, Target kind, double target) {
  const bool met = kind == Target::kAtLeast ? reached >= target : reached <= target;
  std::printf("  %s %.2f, target %.2f: %s\n", what, reached, target, met ? "met" : "MISSED");
}

}  // namespace tamrix::bench
