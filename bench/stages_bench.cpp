// What the checksum and the sparse stage cost: copies of a file in memory with and without them, each stage
// on a core of our choice, or wherever the system puts it. Where cores are chosen, reader and writer share
// one and the other one is free for the stages. The time that the busier core spends on the copy is given
// beside the time on the clock: it is what the clock would show were nothing else to run on the machine.
// Stages that pass buffers on and do nothing tell what of it is the price of the ring.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "bench/comparison.h"
#include "config/properties.h"
#include "config/run_options.h"
#include "log/logger.h"
#include "pipeline/ring/buffer_q.h"
#include "reader/list/copy_list.h"
#include "reader/stage/file_reader_module.h"
#include "writer/file_writer_module.h"
#include "writer/modsum64_process_module.h"
#include "writer/sparse_process_module.h"

namespace {

using namespace tamrix;  // NOLINT: a program, not a header

constexpr std::size_t kFileSize = 512U << 20;
constexpr int kAnyCore = -1;

// The cores that the program may use, in order.
std::vector<int> availableCores() {
  cpu_set_t set;
  sched_getaffinity(0, sizeof(set), &set);
  std::vector<int> all;
  for (int core = 0; core < CPU_SETSIZE; ++core) {
    if (CPU_ISSET(static_cast<std::size_t>(core), &set)) all.push_back(core);
  }
  return all;
}

double seconds(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// A stage whose thread stays on one core, and which adds the processor time that it took to `busy`.
template <class Stage>
class Pinned : public Stage {
 public:
  template <class... More>
  Pinned(PipelineGlobals& globals, const RunOptions& options, int core, std::atomic<double>& busy,
         More&&... more)
      : Stage(globals, options, std::forward<More>(more)...), core_(core), busy_(busy) {}
  void run() override {
    if (core_ != kAnyCore) {
      cpu_set_t set;
      CPU_ZERO(&set);
      CPU_SET(static_cast<std::size_t>(core_), &set);
      sched_setaffinity(0, sizeof(set), &set);
    }
    Stage::run();
    busy_ += seconds(CLOCK_THREAD_CPUTIME_ID);
  }

 private:
  const int core_;
  std::atomic<double>& busy_;
};

// Looks at nothing.
class IdleModule : public ProcessModule {
 public:
  IdleModule(PipelineGlobals& globals, const RunOptions& options) : ProcessModule(globals, options, "idle") {}
  int processBuffer(BufferSlot& /*slot*/) override { return 0; }
};

// What is between reader and writer.
enum class Between { kNothing, kIdleStages, kStages, kXxh128 };

struct Cores {
  int copying = kAnyCore;  // where reader and writer run
  int stages = kAnyCore;   // where the stages between them run, if any
};

struct Times {
  double clock;  // seconds from the first thread's start to the last one's end
  double busy;   // processor seconds of the busier one of the two groups
};

Times copyOnce(Between stages, Cores cores) {
  PipelineGlobals globals;
  std::atomic<double> copying{0};
  std::atomic<double> between{0};
  std::vector<std::unique_ptr<Module>> modules;
  const RunOptions options = readRunOptions(*properties);
  CopyList list(globals, options);
  if (list.getList() != 0) std::abort();
  RunFiles files(list.extents(), list.dropped());
  modules.push_back(
      std::make_unique<Pinned<FileReaderModule>>(globals, options, cores.copying, copying, list, &files));
  if (stages == Between::kIdleStages) {
    for (int i = 0; i < 2; ++i) {
      modules.push_back(std::make_unique<Pinned<IdleModule>>(globals, options, cores.stages, between));
    }
  } else if (stages == Between::kStages) {
    globals.sparseMode = 1;
    modules.push_back(std::make_unique<Pinned<modsum64ProcessModule>>(globals, options, cores.stages, between,
                                                                      makeChecksumAlgorithm("modsum64")));
    modules.push_back(std::make_unique<Pinned<sparseProcessModule>>(globals, options, cores.stages, between));
  } else if (stages == Between::kXxh128) {
    modules.push_back(std::make_unique<Pinned<modsum64ProcessModule>>(globals, options, cores.stages, between,
                                                                      makeChecksumAlgorithm("xxh128")));
  }
  modules.push_back(
      std::make_unique<Pinned<FileWriterModule>>(globals, options, cores.copying, copying, files));
  BufferQ ring;
  if (ring.createQ(static_cast<int>(modules.size()), globals.stopExecution, options) != 0) std::abort();

  const double start = seconds(CLOCK_MONOTONIC);
  for (std::size_t id = 0; id < modules.size(); ++id) {
    modules[id]->setModuleId(static_cast<int>(id));
    modules[id]->setRing(ring);
    if (modules[id]->start() != 0) std::abort();
  }
  for (const auto& module : modules) module->join();
  const double end = seconds(CLOCK_MONOTONIC);
  for (const auto& module : modules) {
    if (module->exitCode() != 0) std::abort();
  }
  return {end - start, std::max(copying.load(), between.load())};
}

constexpr std::pair<const char*, Between> kSides[] = {{" without", Between::kNothing},
                                                      {" idle", Between::kIdleStages},
                                                      {" with", Between::kStages},
                                                      {" xxh128", Between::kXxh128}};

// Registers the copies to be compared, measured by `time`.
void add(const std::string& name, const std::string& destination, Cores cores, double Times::*time) {
  for (const auto& [side, stages] : kSides) {
    benchmark::RegisterBenchmark((name + side).c_str(), [=, between = stages](benchmark::State& state) {
      for (auto _ : state) {
        std::filesystem::remove_all(destination);
        state.SetIterationTime(copyOnce(between, cores).*time);
      }
      state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kFileSize));
    })->UseManualTime();
  }
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

}  // namespace

int main(int argc, char** argv) {
  const std::string dir = "/dev/shm/tamrix-bench-" + std::to_string(getpid());
  makeFile(dir + "/src/file");
  Logger log(open("/dev/null", O_WRONLY | O_CLOEXEC), open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (log.LoadMessage("tamrix") != 0 || log.init(kUrgent) != 0) return 1;
  logger = &log;
  const std::string destination = dir + "/dst";
  // The stage wants an attribute's name, though a copy stores nothing.
  std::vector<KnownProperty> table(programProperties().begin(), programProperties().end());
  table.push_back({"checksumea", "user._ltfs.checksum"});
  Properties store(table);
  properties = &store;
  if (!store.setDefaults() || store.addProperty("srcpath", dir + "/src") != 0 ||
      store.addProperty("srcspec", "*") != 0 || store.addProperty("dstpath", destination) != 0 ||
      store.addProperty("ignore-vendor-check", "enable") != 0) {
    return 1;
  }

  const std::vector<int> available = availableCores();
  const Cores two = {available.front(), available.back()};
  const std::string names[] = {"one core copies, one is free for the stages; busier core",
                               "one core copies, one is free for the stages; clock",
                               "stages run where the system puts them; clock"};
  add(names[0], destination, two, &Times::busy);
  add(names[1], destination, two, &Times::clock);
  add(names[2], destination, {}, &Times::clock);
  auto speeds = bench::bestSpeeds(argc, argv);
  std::printf("%zu cores; MB/s, and time ratios to the copy without stages\n", available.size());
  for (const std::string& name : names) {
    const double without = speeds[name + " without"];
    const double idle = speeds[name + " idle"];
    const double with = speeds[name + " with"];
    const double xxh128 = speeds[name + " xxh128"];
    std::printf(
        "%-58s without %4.0f, idle stages %4.0f (%.2f), stages %4.0f (%.2f), xxh128 alone %4.0f (%.2f)\n",
        name.c_str(), without / 1e6, idle / 1e6, without / idle, with / 1e6, without / with, xxh128 / 1e6,
        without / xxh128);
  }
  std::filesystem::remove_all(dir);
}
