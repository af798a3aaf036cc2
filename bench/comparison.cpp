#include "bench/comparison.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace tamrix::bench {

namespace {

// Keeps the best run of each benchmark and prints nothing.
class BestRuns : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      std::string name = run.run_name.function_name;
      if (!run.run_name.args.empty()) name += "/" + run.run_name.args;
      double& best = speeds[name];
      const auto items = run.counters.find("items_per_second");
      best = std::max(best, items != run.counters.end() ? items->second.value
                                                        : run.counters.at("bytes_per_second").value);
    }
  }

  std::map<std::string, double> speeds;
};

}  // namespace

std::map<std::string, double> bestSpeeds(int argc, char** argv) {
  std::string interleaving = "--benchmark_enable_random_interleaving=true";
  std::string repetitions = "--benchmark_repetitions=15";
  std::string minTime = "--benchmark_min_time=0.05";
  std::vector<char*> arguments = {argv[0], interleaving.data(), repetitions.data(), minTime.data()};
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) std::exit(1);
  BestRuns best;
  benchmark::RunSpecifiedBenchmarks(&best);
  return best.speeds;
}

}  // namespace tamrix::bench
