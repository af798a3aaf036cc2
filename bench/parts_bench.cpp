// What the parts cost that every buffer, line or pair passes through: handing a buffer on, a log line that is
// not shown, looking for conflicts of a pair. The first two stand beside the least that the job could cost,
// the last beside the same among few pairs.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "bench/comparison.h"
#include "config/run_options.h"
#include "log/logger.h"
#include "pipeline/ring/buffer_q.h"
#include "pipeline/stage/globals.h"
#include "reader/list/pair_index.h"
#include "reader/record/file_c.h"

namespace {

using namespace tamrix;  // NOLINT: a program, not a header

constexpr int kBatch = 1000;  // operations in one iteration

RunOptions smallRing() {
  RunOptions options;
  options.totalBufferSize = "4MB";
  options.bufferSize = "4KB";
  return options;
}

// `isLast`: of the reader's, when no other follows.
void passOn(BufferQ& ring, int module, bool isLast = false) {
  BufferSlot* slot = nullptr;
  if (ring.getBufferSlot(module, slot) != 0) std::abort();
  slot->length = 1;
  if (module == 0) slot->endOfData = isLast ? 1 : 0;
  if (ring.putBufferSlot(module, *slot) != 0) std::abort();
}

// One thread takes the part of both stages: the price without waiting.
void handOverOnOneThread(benchmark::State& state) {
  const StopFlag stop;
  BufferQ ring;
  if (ring.createQ(2, stop, smallRing()) != 0) std::abort();
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) {
      passOn(ring, 0);
      passOn(ring, 1);
    }
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

// Two stages that do nothing else: all of it is the ring, waiting and waking included.
void handOverBetweenThreads(benchmark::State& state) {
  const StopFlag stop;
  BufferQ ring;
  if (ring.createQ(2, stop, smallRing()) != 0) std::abort();
  for (auto _ : state) {
    std::thread second([&] {
      for (int i = 0; i < 100 * kBatch; ++i) passOn(ring, 1);
    });
    for (int i = 1; i <= 100 * kBatch; ++i) passOn(ring, 0, i == 100 * kBatch);
    second.join();
  }
  state.SetItemsProcessed(state.iterations() * 100 * kBatch);
}

// What a hand-over can't do without: each of two stages takes a mutex for its get and for its put.
void fourLocks(benchmark::State& state) {
  std::mutex mutex;
  int guarded = 0;
  for (auto _ : state) {
    for (int i = 0; i < 4 * kBatch; ++i) {
      const std::lock_guard<std::mutex> lock(mutex);
      benchmark::DoNotOptimize(++guarded);
    }
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

void suppressedLine(benchmark::State& state) {
  const std::string path = "/some/where/a/file";
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) {
      logger->log(kDebug, msg::kFileWriterBuffer, path);
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

void oneCompare(benchmark::State& state) {
  std::atomic<int> level{kUrgent};
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) {
      bool shown = level.load(std::memory_order_relaxed) <= kDebug;
      benchmark::DoNotOptimize(shown);
      benchmark::ClobberMemory();
    }
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

// An index of `count` pairs that were accepted, 200 a directory.
struct FilledIndex {
  explicit FilledIndex(std::size_t count) {
    struct stat status {};
    for (std::size_t i = 0; i < count; ++i) {
      const std::string name = nameOf(i);
      const PathIdentity source = sourceOf(i, "/source" + name);
      status.st_dev = source.device;
      status.st_ino = source.inode;
      const FilePath path("/source" + name);
      const std::string destination = "/destination" + name;
      const FilePair paths = {path, FilePath(destination, path)};
      index.add(files.emplace_back(paths, status), destination, destinationOf(i));
    }
  }
  static std::string nameOf(std::size_t number) {
    return "/d" + std::to_string(number / 200) + "/f" + std::to_string(number);
  }
  // As of a source that exists, and of a destination whose directory does.
  static PathIdentity sourceOf(std::size_t number, const std::string& path) {
    return {1, static_cast<ino_t>(number + 1), path.size()};
  }
  static PathIdentity destinationOf(std::size_t number) {
    return {2, static_cast<ino_t>(number / 200 + 1), std::string("/destination/d").size() + digits(number)};
  }
  static std::size_t digits(std::size_t number) { return std::to_string(number / 200).size(); }

  std::deque<FileC> files;
  PairIndex index;
};

void conflictCheck(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  static std::map<std::size_t, std::unique_ptr<FilledIndex>> made;
  std::unique_ptr<FilledIndex>& filled = made[count];
  if (filled == nullptr) filled = std::make_unique<FilledIndex>(count);
  const std::size_t fresh = count * 7 / 200 * 200;
  const std::string name = FilledIndex::nameOf(fresh);
  const std::string source = "/source" + name;
  const std::string destination = "/destination" + name;
  std::size_t step = 0;
  for (auto _ : state) {
    for (int i = 0; i < kBatch; ++i) {
      // Another file each time, so that the look-ups go all over the tables.
      PathIdentity to = FilledIndex::destinationOf(fresh);
      to.inode += ++step;
      const PathIdentity from = FilledIndex::sourceOf(fresh + step, source);
      if (filled->index.find(source, from, destination, to).kind != PairClash::Kind::kNone) std::abort();
    }
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}

}  // namespace

int main(int argc, char** argv) {
  Logger log(open("/dev/null", O_WRONLY | O_CLOEXEC), open("/dev/null", O_WRONLY | O_CLOEXEC));
  if (log.LoadMessage("tamrix") != 0 || log.init(kUrgent) != 0) return 1;
  logger = &log;

  std::thread([] {}).join();  // a process that never had a second thread gets cheaper locks
  benchmark::RegisterBenchmark("four locks", fourLocks);
  benchmark::RegisterBenchmark("hand-over, one thread", handOverOnOneThread);
  benchmark::RegisterBenchmark("hand-over, two threads", handOverBetweenThreads)->UseRealTime();
  benchmark::RegisterBenchmark("one compare", oneCompare);
  benchmark::RegisterBenchmark("suppressed line", suppressedLine);
  for (const std::int64_t count : {1000, 100000, 1000000}) {
    benchmark::RegisterBenchmark("conflict check", conflictCheck)->Arg(count);
  }
  auto speeds = bench::bestSpeeds(argc, argv);
  const auto tell = [&](const std::string& name, const std::string& beside) {
    std::printf("%-24s %7.2f ns, %6.2f times %s\n", name.c_str(), 1e9 / speeds.at(name),
                speeds.at(beside) / speeds.at(name), beside.c_str());
  };
  tell("hand-over, one thread", "four locks");
  tell("hand-over, two threads", "four locks");
  tell("suppressed line", "one compare");
  for (const char* count : {"1000", "100000", "1000000"}) {
    tell("conflict check/" + std::string(count), "conflict check/1000");
  }
}
