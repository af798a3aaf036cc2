// What the checksum and the sparse stage cost: copies of a file in memory with and without them, each stage
// on a core of our choice, or wherever the system puts it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/comparison.h"
#include "log/logger.h"
#include "pipeline/buffer_q.h"
#include "reader/file_reader_module.h"
#include "tests/support/wide_properties.h"
#include "writer/file_writer_module.h"
#include "writer/modsum64_process_module.h"
#include "writer/sparse_process_module.h"

namespace {

using namespace tamrix;  // NOLINT: a program, not a header

constexpr std::size_t kFileSize = 512U << 20;
constexpr int kAnyCore = -1;

// The calling thread's cores, in order.
std::vector<int> cores() {
  cpu_set_t set;
  sched_getaffinity(0, sizeof(set), &set);
  std::vector<int> all;
  for (int core = 0; core < CPU_SETSIZE; ++core) {
    if (CPU_ISSET(static_cast<std::size_t>(core), &set)) all.push_back(core);
  }
  return all;
}

// A stage whose thread stays on one core.
template <class Stage>
class Pinned : public Stage {
 public:
  Pinned(PipelineGlobals& globals, int core) : Stage(globals), core_(core) {}
  void run() override {
    if (core_ != kAnyCore) {
      cpu_set_t set;
      CPU_ZERO(&set);
      CPU_SET(static_cast<std::size_t>(core_), &set);
      sched_setaffinity(0, sizeof(set), &set);
    }
    Stage::run();
  }

 private:
  const int core_;
};

// Copies the file. Reader and writer run on `copyCore`, the stages between them, if any, on `stageCore`.
// Returns the seconds from the first thread's start to the last one's end.
double copyOnce(bool withStages, int copyCore, int stageCore) {
  PipelineGlobals globals;
  std::vector<std::unique_ptr<Module>> modules;
  auto reader = std::make_unique<Pinned<FileReaderModule>>(globals, copyCore);
  if (reader->getList() != 0) std::abort();
  modules.push_back(std::move(reader));
  if (withStages) {
    globals.sparseMode = 1;
    modules.push_back(std::make_unique<Pinned<modsum64ProcessModule>>(globals, stageCore));
    modules.push_back(std::make_unique<Pinned<sparseProcessModule>>(globals, stageCore));
  }
  modules.push_back(std::make_unique<Pinned<FileWriterModule>>(globals, copyCore));
  BufferQ ring;
  if (ring.createQ(static_cast<int>(modules.size()), globals.stopExecution) != 0) std::abort();

  const auto start = std::chrono::steady_clock::now();
  for (std::size_t id = 0; id < modules.size(); ++id) {
    modules[id]->setModuleId(static_cast<int>(id));
    modules[id]->setRing(ring);
    if (modules[id]->start() != 0) std::abort();
  }
  for (const auto& module : modules) module->join();
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  for (const auto& module : modules) {
    if (module->exitCode() != 0) std::abort();
  }
  return elapsed.count();
}

void add(const char* name, const std::string& destination, bool withStages, int copyCore, int stageCore) {
  benchmark::RegisterBenchmark(name, [=](benchmark::State& state) {
    for (auto _ : state) {
      std::filesystem::remove_all(destination);
      state.SetIterationTime(copyOnce(withStages, copyCore, stageCore));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFileSize));
  })->UseManualTime();
}

// Data without a buffer of zeros, so that everything is written with the stages and without.
void makeFile(const std::string& path) {
  std::vector<std::uint64_t> words(kFileSize / sizeof(std::uint64_t));
  std::mt19937_64 random(1);
  for (std::uint64_t& word : words) word = random();
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(words.data()), static_cast<std::streamsize>(kFileSize));
}

void print(const char* what, double with, double without) {
  std::printf("%-58s %6.0f MB/s without, %6.0f MB/s with, time ratio %.2f\n", what, without / 1e6, with / 1e6,
              without / with);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string dir = "/dev/shm/tamrix-bench-" + std::to_string(getpid());
  makeFile(dir + "/src/file");
  Logger log(open("/dev/null", O_WRONLY | O_CLOEXEC), open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (log.LoadMessage("tamrix") != 0 || log.init(kUrgent) != 0) return 1;
  logger = &log;
  const std::string destination = dir + "/dst";
  const test::WideProperties store({{"srcpath", dir + "/src"},
                                    {"srcspec", "*"},
                                    {"dstpath", destination},
                                    {"checksumea", "user._ltfs.modsum64"},
                                    {"ignore-vendor-check", "enable"}});

  const std::vector<int> available = cores();
  const int copyCore = available.front();
  const int stageCore = available.back();
  add("free without", destination, false, kAnyCore, kAnyCore);
  add("free with", destination, true, kAnyCore, kAnyCore);
  add("pinned without", destination, false, copyCore, stageCore);
  add("pinned with", destination, true, copyCore, stageCore);
  auto speeds = bench::bestSpeeds(argc, argv);
  std::printf("%zu cores\n", available.size());
  print("reader and writer on one core, a core for the two stages:", speeds["pinned with"],
        speeds["pinned without"]);
  print("all stages wherever the system puts them:", speeds["free with"], speeds["free without"]);
  std::filesystem::remove_all(dir);
}
