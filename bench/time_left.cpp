// How well the last line's time left predicts the end of a copy.
//
//     time_left_bench TAMRIX TAPE_VOLUME DIRECTORY
//
// For each of several requests of contiguous files it mounts a modelled volume in DIRECTORY that takes the
// time of a drive, lets TAMRIX copy from it, and holds each time left that is shown against what was left.
// The drive is the slowest one, so that what the model costs itself, which depends on the machine's other
// work, is little of it.
//
// Ends with 0 when all that is shown from a tenth of the run on is within the target, 1 when it is not, 2
// when something went wrong, 3 when mounting is refused. DIRECTORY is left to the caller to remove.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "bench/child_run.h"
#include "bench/mounted_volume.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kTarget = 0.2;  // of the truth
constexpr double kLeadIn = 0.1;  // of the run, whose figures do not count
constexpr std::int64_t kBlock = 524288;

struct Request {
  const char* name;
  std::vector<std::int64_t> bytes;  // of each file, in tape order
};

std::vector<Request> makeRequests() {
  std::vector<Request> requests = {{"20 files of 200 MB", std::vector<std::int64_t>(20, 200'000'000)},
                                   {"500 files of 8 MB", std::vector<std::int64_t>(500, 8'000'000)},
                                   {"4000 files of 1 MB", std::vector<std::int64_t>(4000, 1'000'000)},
                                   {"log-uniform mix", {}}};
  std::mt19937_64 random(1);
  std::uniform_real_distribution<> exponent(std::log(16e3), std::log(256e6));
  for (std::int64_t sum = 0; sum < 4'000'000'000; sum += requests[3].bytes.back()) {
    requests[3].bytes.push_back(static_cast<std::int64_t>(std::exp(exponent(random))));
  }
  return requests;
}

void makeFiles(const Request& request, const std::string& directory) {
  std::filesystem::create_directories(directory + "/tape");
  std::ofstream layout(directory + "/layout");
  std::int64_t block = 100;
  for (std::size_t i = 0; i < request.bytes.size(); ++i) {
    const std::string name = std::to_string(1'000'000 + (i * 7919) % request.bytes.size());
    layout << "b " << block << ' ' << name << '\n';
    const std::string path = directory + "/tape/" + name;
    std::ofstream(path).close();
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(request.bytes[i]));
    block += (request.bytes[i] + kBlock - 1) / kBlock;
  }
  if (!layout.flush()) throw std::runtime_error("cannot write to " + directory);
}

// A time left as shown, rounded down to whole seconds.
struct Shown {
  Clock::time_point at;
  double seconds;
};

struct Copy {
  Clock::time_point begun, ended;
  std::vector<Shown> shown;
};

// What the texts of the last line say.
void collect(const std::string& text, Clock::time_point at, std::vector<Shown>& shown) {
  static const std::regex left("(<1|[0-9:]+)( s)? left");
  for (auto match = std::sregex_iterator(text.begin(), text.end(), left); match != std::sregex_iterator();
       ++match) {
    const std::string figure = (*match)[1];
    double seconds = 0;
    std::size_t at60 = 0;
    for (std::size_t next = 0; figure[0] != '<' && next <= figure.size(); next = at60 + 1) {
      at60 = std::min(figure.find(':', next), figure.size());
      seconds = seconds * 60 + std::stod(figure.substr(next, at60 - next));
    }
    shown.push_back({at, seconds});
  }
}

Copy copyOnce(const std::string& tamrix, const std::string& from, const std::string& to) {
  std::array<int, 2> err{};
  if (pipe2(err.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  Copy copy;
  copy.begun = Clock::now();
  tamrix::model::ChildProcess child(
      {.words = {tamrix, "-srcpath=" + from, "-srcspec=*", "-dstpath=" + to, "-sparse", "-loglevel=WARNING"},
       .descriptors = {{STDERR_FILENO, err[1]}},
       .environment = {{"TAMRIX_PROGRESS", "always"}, {"LC_ALL", "C"}}});
  close(err[1]);
  std::array<char, 65536> text{};
  for (ssize_t n = 0; (n = read(err[0], text.data(), text.size())) > 0;) {
    collect(std::string(text.data(), static_cast<std::size_t>(n)), Clock::now(), copy.shown);
  }
  close(err[0]);
  const int status = child.wait().status;
  copy.ended = Clock::now();
  if (status != 0) throw std::runtime_error("the copy ended with " + std::to_string(status));
  return copy;
}

double secondsOf(Clock::duration time) { return std::chrono::duration<double>(time).count(); }

// How far a figure is off, as a share of the truth: "12 s" stands for all from 12 to 13 seconds.
double errorOf(double shown, double truth) {
  const double off = truth < shown ? shown - truth : std::max(0.0, truth - shown - 1);
  return off / truth;
}

// Prints a line. Returns whether the target is met.
bool judge(const char* name, const Copy& copy) {
  const double whole = secondsOf(copy.ended - copy.begun);
  std::vector<double> errors;
  double first = 1;  // share of the run at which the first figure is shown
  for (const Shown& shown : copy.shown) {
    const double share = secondsOf(shown.at - copy.begun) / whole;
    first = std::min(first, share);
    if (share >= kLeadIn) errors.push_back(errorOf(shown.seconds, secondsOf(copy.ended - shown.at)));
  }
  if (errors.empty()) throw std::runtime_error("no time left was shown");
  std::sort(errors.begin(), errors.end());
  const double worst = errors.back();
  std::printf("%-25s %8.1f %8zu %12.0f %% %8.1f %% %8.1f %%\n", name, whole, errors.size(), 100 * first,
              100 * errors[errors.size() / 2], 100 * worst);
  std::fflush(stdout);
  return worst <= kTarget;
}

int measure(const std::string& tamrix, const std::string& volume, const std::string& work) {
  std::printf("%-25s %8s %8s %14s %10s %10s\n", "LTO-5", "seconds", "figures", "first at", "median off",
              "worst");
  bool met = true;
  for (const Request& request : makeRequests()) {
    const std::string directory = work + "/request";
    makeFiles(request, directory);
    tamrix::bench::MountedVolume mounted(volume, directory, {"-drive=lto5", "-delay=1"});
    if (!mounted.isMounted()) return tamrix::bench::kMountRefused;
    met = judge(request.name, copyOnce(tamrix, mounted.path(), directory + "/copy")) && met;
    (void)mounted.finish();
    std::filesystem::remove_all(directory);
  }
  std::printf("\nall within %.0f %% from a tenth of the run on: %s\n", 100 * kTarget, met ? "met" : "MISSED");
  return met ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s TAMRIX TAPE_VOLUME DIRECTORY\n", argv[0]);
    return 2;
  }
  try {
    return measure(argv[1], argv[2], argv[3]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 2;
  }
}
