// The zero test and the byte sum against a plain vectorised pass over the same buffer, in the caches and in
// memory.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "bench/comparison.h"
#include "bench/plain_pass.h"
#include "writer/byte_scan.h"

namespace {

constexpr std::size_t kSizes[] = {16U << 10, 128U << 10, 256U << 10, 1U << 30};

struct Freer {
  void operator()(void* memory) const { std::free(memory); }
};

// The one buffer of a size, all zeros, which is what makes the zero test read all of it.
const char* buffer(std::size_t size) {
  static std::map<std::size_t, std::unique_ptr<char, Freer>> buffers;
  std::unique_ptr<char, Freer>& memory = buffers[size];
  if (memory == nullptr) {
    memory.reset(static_cast<char*>(std::aligned_alloc(4096, size)));
    std::memset(memory.get(), 0, size);
  }
  return memory.get();
}

// Measures `scan(data, size)` under `name` for every size.
template <class Scan>
void add(const std::string& name, Scan scan) {
  for (const std::size_t size : kSizes) {
    benchmark::RegisterBenchmark(name.c_str(), [scan, size](benchmark::State& state) {
      const char* const data = buffer(size);
      for (auto _ : state) benchmark::DoNotOptimize(scan(data, size));
      state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
    })->Arg(static_cast<std::int64_t>(size));
  }
}

void print(const char* what, double speed, double plain) {
  std::printf("  %-24s %7.1f GB/s   %4.0f %%\n", what, speed / 1e9, 100 * speed / plain);
}

}  // namespace

int main(int argc, char** argv) {
  add("plain or", tamrix::bench::orOfWords);
  add("plain sum", tamrix::bench::sumOfWords);
  add("zero test", tamrix::allZero);
  add("byte sum", tamrix::byteSum);
  auto speeds = tamrix::bench::bestSpeeds(argc, argv);

  for (const std::size_t size : kSizes) {
    const std::string suffix = std::string("/").append(std::to_string(size));
    const double plain = std::max(speeds["plain or" + suffix], speeds["plain sum" + suffix]);
    std::printf("%zu KiB\n", size >> 10);
    print("plain pass", plain, plain);
    for (const char* scan : {"zero test", "byte sum"}) print(scan, speeds[scan + suffix], plain);
  }
}
