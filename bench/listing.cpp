// How time and memory of the listing grow with the number of files.
//
//     listing_bench TAMRIX TAMRIX_PLAN DIRECTORY [ROUNDS]
//
// Makes trees of empty files with the attributes of a tape volume in DIRECTORY, and lets the program TAMRIX
// list them, as a directory tree and as the pairs of a batch file. An unusable buffer size ends each run
// between listing and copying. Lets TAMRIX_PLAN plan the same, also with a batch file and a report to write.
// Prints a table of medians and what they come to against the targets.
//
// Ends with 0 when the targets are met, 1 when one is missed, 2 when something went wrong, 3 when DIRECTORY
// takes no user attributes. DIRECTORY is left to the caller to remove.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/child_run.h"
#include "bench/tape_tree.h"

namespace {

using tamrix::bench::ChildRun;
using tamrix::bench::kFilesPerDirectory;
using tamrix::bench::kTreeFileSize;

constexpr double kTreeTimeRatio = 10;   // for ten times the files
constexpr double kBatchTimeRatio = 11;  // linear, and a tenth for the noise of runs below a second
constexpr double kTreeBytes = 560;      // a file with all attributes
constexpr double kPositionBytes = 430;  // a file with those of its position
constexpr double kBatchBytes = 700;     // a pair, or a file in a plan
constexpr int kNoAttributes = 3;

// A batch file with the first `count` files of a tree, a file element per directory.
void writeBatchFile(const std::string& path, const std::string& tree, const std::string& destination,
                    int count) {
  std::ofstream batch(path);
  batch << "<tamrixspec version=\"1.0\">\n  <data>\n";
  for (int file = 0; file < count; ++file) {
    const std::string directory = tamrix::bench::treeDirectory(file);
    if (file % kFilesPerDirectory == 0) {
      batch << "    <file>\n      <srcpath>" << tree << '/' << directory << "</srcpath>\n      <dstpath>"
            << destination << '/' << directory << "</dstpath>\n";
    }
    batch << "      <sf>" << tamrix::bench::treeFile(file) << "</sf>\n";
    if (file % kFilesPerDirectory == kFilesPerDirectory - 1) batch << "    </file>\n";
  }
  batch << "  </data>\n</tamrixspec>\n";
  if (!batch.flush()) throw std::runtime_error("can't write " + path);
}

// One thing to list, and the runs that listed it.
struct Case {
  std::string name;
  int files;
  std::vector<std::string> words;  // program and arguments
  std::vector<ChildRun> runs;

  double median(const std::function<double(const ChildRun&)>& figure) const {
    std::vector<double> figures;
    std::transform(runs.begin(), runs.end(), std::back_inserter(figures), figure);
    return tamrix::bench::median(figures);
  }
  double wall() const {
    return median([](const ChildRun& run) { return run.wall; });
  }
  double cpu() const {
    return median([](const ChildRun& run) { return run.end.cpu; });
  }
  double bytesPerFile(double emptyPeak) const {
    return (median([](const ChildRun& run) { return run.end.peak; }) - emptyPeak) / files;
  }
};

void listOnce(const std::string& work, Case& listed) {
  std::vector<std::string> words = listed.words;
  words.insert(words.end(), {"-ignore-vendor-check", "-buffer-size=0", "-loglevel=PROGRESS"});
  ChildRun run = tamrix::bench::runChild(words, work + "/log");
  const std::string total =
      "Total " + std::to_string(static_cast<long long>(listed.files) * kTreeFileSize) + " bytes to transfer";
  if (listed.files > 0 && run.text.find(total) == std::string::npos) {
    throw std::runtime_error(listed.name + ": not all files were listed; the log says:\n" + run.text);
  }
  run.text.clear();
  listed.runs.push_back(std::move(run));
}

void printRow(const Case& listed, double emptyPeak) {
  std::printf("%-8s %9d %9.3f %9.3f %10.0f %9.0f\n", listed.name.c_str(), listed.files, listed.wall(),
              listed.cpu(), listed.files / listed.wall(), listed.bytesPerFile(emptyPeak));
}

// Prints how the larger of two cases, ten times the smaller one, stands to it. Returns whether it meets the
// targets.
bool judge(const Case& smaller, const Case& larger, double emptyPeak, double targetRatio,
           double targetBytes) {
  // Processor time: what the clock says depends on what else the machine does.
  const double ratio = larger.cpu() / smaller.cpu();
  const double bytes = larger.bytesPerFile(emptyPeak);
  const bool met = ratio <= targetRatio && bytes <= targetBytes;
  std::printf(
      "%-8s ten times the files: %5.2f times the cpu time (at most %.0f; by the clock %.2f), "
      "%.0f bytes a file (at most %.0f): %s\n",
      larger.name.c_str(), ratio, targetRatio, larger.wall() / smaller.wall(), bytes, targetBytes,
      met ? "met" : "MISSED");
  return met;
}

// Prints how planning stands to listing the same files.
void comparePlan(const Case& listed, const Case& planned) {
  std::printf("%-8s %.2f times the time of listing %d files, %.2f times its cpu time\n", planned.name.c_str(),
              planned.wall() / listed.wall(), listed.files, planned.cpu() / listed.cpu());
}

int measure(const std::string& program, const std::string& plan, const std::string& work, int rounds) {
  // Names of one length, so that the paths cost the same.
  const std::string tree = work + "/vol-1";
  const std::string largeTree = work + "/vol-2";
  const std::string destination = work + "/restored";
  tamrix::bench::makeTapeTree(tree, 100000);
  tamrix::bench::makeTapeTree(largeTree, 1000000);
  const std::string positionTree = work + "/vol-3";
  tamrix::bench::makeTapeTree(positionTree, 1000000, tamrix::bench::TapeAttributes::kPosition);
  std::filesystem::create_directory(work + "/none");

  const auto treeCase = [&](const char* name, const std::string& by, int files, const std::string& source,
                            const std::vector<std::string>& more = {}) {
    Case made{
        name, files, {by, "-srcpath=" + source, "-srcspec=*", "-recursive", "-dstpath=" + destination}, {}};
    made.words.insert(made.words.end(), more.begin(), more.end());
    return made;
  };
  const auto batchCase = [&](int files) {
    const std::string batch = work + "/batch-" + std::to_string(files) + ".xml";
    writeBatchFile(batch, tree, destination, files);
    return Case{"batch", files, {program, "-batchfile=" + batch}, {}};
  };
  // A batch file in tape order, as the case before makes it.
  const auto madeCase = [&](const char* name, const std::string& by) {
    return Case{name, 1000000, {by, "-batchfile=" + work + "/plan.xml"}, {}};
  };
  std::array cases = {treeCase("tree", program, 0, work + "/none"),
                      treeCase("tree", program, 100000, tree),
                      treeCase("tree", program, 1000000, largeTree),
                      batchCase(10000),
                      batchCase(100000),
                      treeCase("plan", plan, 100000, tree),
                      treeCase("plan", plan, 1000000, largeTree),
                      treeCase("written", plan, 1000000, largeTree,
                               {"-output=" + work + "/plan.xml", "-report=" + work + "/plan.jsonl"}),
                      madeCase("made", program),
                      madeCase("replan", plan),
                      treeCase("three", program, 1000000, positionTree)};
  // Round by round, so that what else the machine does falls on all.
  for (int round = 0; round < rounds; ++round) {
    for (Case& listed : cases) listOnce(work, listed);
  }

  const double emptyPeak = cases[0].median([](const ChildRun& run) { return run.end.peak; });
  std::printf(
      "Listing, median of %d rounds; memory is the peak beyond that of an empty listing (%.1f MiB)\n\n",
      rounds, emptyPeak / 1048576);
  std::printf("%-8s %9s %9s %9s %10s %9s\n", "", "files", "wall s", "cpu s", "files/s", "bytes/file");
  for (std::size_t i = 1; i < cases.size(); ++i) printRow(cases.at(i), emptyPeak);
  std::printf("\n");
  const bool treeMet = judge(cases[1], cases[2], emptyPeak, kTreeTimeRatio, kTreeBytes);
  const bool batchMet = judge(cases[3], cases[4], emptyPeak, kBatchTimeRatio, kBatchBytes);
  const bool planMet = judge(cases[5], cases[6], emptyPeak, kBatchTimeRatio, kBatchBytes);
  for (const std::size_t planned : {6, 7}) comparePlan(cases[2], cases.at(planned));
  comparePlan(cases[8], cases[9]);
  const double threeBytes = cases[10].bytesPerFile(emptyPeak);
  const bool threeMet = threeBytes <= kPositionBytes;
  std::printf("three    attributes: %.0f bytes a file (at most %.0f): %s\n", threeBytes, kPositionBytes,
              threeMet ? "met" : "MISSED");
  return treeMet && batchMet && planMet && threeMet ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4 || argc > 5) {
    std::fprintf(stderr, "usage: %s TAMRIX TAMRIX_PLAN DIRECTORY [ROUNDS]\n", argv[0]);
    return 2;
  }
  try {
    const std::string work = argv[3];
    if (!tamrix::bench::makeTapeFile(work + "/probe", 0)) return kNoAttributes;
    return measure(argv[1], argv[2], work, argc == 5 ? std::max(1, std::atoi(argv[4])) : 5);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 2;
  }
}
