// Every system call of a run fails once, one run per call: whatever fails, the run ends, each destination is
// absent or complete, and status and messages say which.
//
// The faults come from a preloaded shared object (tests/support/fault_shim.cpp).
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <tuple>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

struct Call {
  const char* name;
  const char* action;
  int value;
  int step = 1;  // how many calls lie between those that are made to fail
};

enum class From { kSearchExpression, kBatchFile };

// A small mixed tree, made anew for each run because a run changes it.
class FaultScene {
 public:
  explicit FaultScene(From from) {
    sources_ = {{"empty", ""},
                {"small", "small content"},
                {"sub/deep/multi", std::string(9000, 'm') + std::string(9000, '\0') + "end"},
                {"zeros", std::string(12288, '\0')}};
    for (const auto& [name, content] : sources_)
      test::setXattr(scene_.addSource(name, content), "user.a", "1");
    // One destination exists, and a file that is no business of the run lies beside it.
    scene_.addDestination("small", kOld);
    scene_.addDestination("bystander", kOld);
    CopyScene::Pairs pairs;
    for (const auto& [name, content] : sources_)
      pairs.emplace_back(scene_.source(name), scene_.destination(name));
    args_ = from == From::kBatchFile ? scene_.batch(pairs) : scene_.args({"-recursive"});
    args_.insert(args_.end(), {"-loglevel=PROGRESS", "-buffer-size=4KB", "-total-buffer-size=1MB"});
  }

  // Runs with the n-th such call failing.
  ProgramRun run(const Call& call, int n, bool sparse) const {
    std::vector<std::string> args = args_;
    if (sparse) args.emplace_back("-sparse");
    const std::string fault = std::string(call.name) + " " + std::to_string(n) + " " + call.action + " " +
                              std::to_string(call.value) + " " + scene_.dir().path();
    return runProgram(args, {.environment = {{"LD_PRELOAD", TAMRIX_FAULT_SHIM},
                                             {"TAMRIX_FAULT", fault},
                                             {"TAMRIX_FAULT_LOG", scene_.dir() / "fired"}}});
  }

  bool fired() const { return std::filesystem::exists(scene_.dir() / "fired"); }

  void checkOutcome(const ProgramRun& run) const {
    Contents left = scene_.copied();
    std::erase_if(left, [](const auto& entry) { return entry.second == "<dir>"; });
    EXPECT_EQ(left["bystander"], kOld);
    left.erase("bystander");
    bool allCopied = true;
    for (const auto& [name, content] : sources_) {
      EXPECT_TRUE(test::readFile(scene_.source(name)) == content) << "source changed: " << name;
      const auto found = left.find(name);
      const bool copied = found != left.end() && found->second == content;
      const bool untouched = found == left.end() || (name == "small" && found->second == kOld);
      EXPECT_TRUE(copied || untouched) << name << " is left with " << found->second.size() << " bytes";
      allCopied = allCopied && copied;
      checkStatusLine(run, name, copied, found == left.end());
      left.erase(name);
    }
    EXPECT_TRUE(left.empty()) << left.begin()->first << " is nobody's";
    EXPECT_TRUE(allCopied || run.status != 0) << "missing files without a word";
    EXPECT_TRUE(run.status <= 0 || saysWhy(run)) << "failed without a word" << run;
  }

 private:
  // Without its texts, the program has no word to say.
  static bool saysWhy(const ProgramRun& run) {
    const std::string all = run.out + run.err;
    const auto words = {"ERROR", "requires", "Failed to", "Unable to"};
    return all.empty() || std::any_of(words.begin(), words.end(),
                                      [&](const char* word) { return all.find(word) != std::string::npos; });
  }

  void checkStatusLine(const ProgramRun& run, const std::string& name, bool copied, bool absent) const {
    const std::string from = scene_.source(name);
    const std::string to = scene_.destination(name);
    if (run.count(text(msg::kFileWriterStatusSuccess, from, to)) +
            run.count(text(msg::kFileWriterStatusWarning, from, to)) >
        0) {
      EXPECT_TRUE(copied) << name;
    } else if (run.count(text(msg::kFileWriterStatusError, from, to)) > 0) {
      EXPECT_TRUE(absent) << name;
    } else if (copied) {
      // Complete, but its lock could not be released.
      EXPECT_NE(run.err.find("ERROR Unlocking file"), std::string::npos) << name;
    }
  }

  static constexpr const char* kOld = "what was there before";
  CopyScene scene_;
  Contents sources_;
  std::vector<std::string> args_;
};

class FaultLoop : public testing::TestWithParam<std::tuple<Call, From, bool>> {};

// A directory that could not be examined once is not taken for one that does not exist: what is in it may be
// a source.
TEST(FailedStat, ofADirectoryHidesNothingInIt) {
  for (int n = 1; n < 12; ++n) {
    const CopyScene scene;
    const std::string a = scene.addSource("a", "a");
    const std::string b = scene.addSource("b", std::string(3000000, 'b'));
    ASSERT_EQ(symlink(b.c_str(), scene.destination("b").c_str()), 0);
    const ProgramRun run = runProgram(
        scene.batch({{a, scene.destination("a")}, {b, scene.destination("b")}}),
        {.environment = {{"LD_PRELOAD", TAMRIX_FAULT_SHIM},
                         {"TAMRIX_FAULT", "stat " + std::to_string(n) + " errno " + std::to_string(EIO) +
                                              " " + (scene.dir() / "target")}}});
    EXPECT_EQ(run.status, 1) << n << run;
    EXPECT_TRUE(test::readFile(b) == std::string(3000000, 'b')) << n << run;
  }
}

// Makes each call of the run fail in turn, until there is none left that could.
TEST_P(FaultLoop, leavesWholeFilesOrNoneAndSaysWhich) {
  const auto& [call, from, sparse] = GetParam();
  int fired = 0;
  for (int n = 1;; n += call.step, ++fired) {
    FaultScene scene(from);
    const ProgramRun run = scene.run(call, n, sparse);
    scene.checkOutcome(run);
    ASSERT_FALSE(HasFailure()) << "with fault at call " << n << run;
    if (scene.fired()) continue;
    EXPECT_EQ(run.status, 0) << "without any fault" << run;
    break;
  }
  // Only a sparse run sizes its files beforehand.
  EXPECT_TRUE(fired > 0 || (std::string(call.name) == "ftruncate" && !sparse) ||
              (std::string(call.name) == "readdir" && from == From::kBatchFile))
      << "the program makes no such call";
}

std::string caseName(const testing::TestParamInfo<FaultLoop::ParamType>& param) {
  const auto& [call, from, sparse] = param.param;
  return std::string(call.name) + "_" + call.action + std::to_string(call.value) +
         (from == From::kBatchFile ? "_batch" : "_search") + (sparse ? "_sparse" : "");
}

const auto kCalls = testing::Values(
    Call{"open", "errno", EIO}, Call{"open", "errno", EMFILE}, Call{"read", "errno", EIO},
    Call{"read", "short", 1}, Call{"write", "errno", ENOSPC}, Call{"write", "short", 1},
    Call{"lseek", "errno", EIO}, Call{"ftruncate", "errno", EIO}, Call{"close", "errno", EIO},
    Call{"fcntl", "errno", ENOLCK}, Call{"utimes", "errno", EPERM}, Call{"fsetxattr", "errno", ENOSPC},
    Call{"getxattr", "errno", EIO}, Call{"listxattr", "errno", EIO}, Call{"stat", "errno", EIO},
    Call{"mkdir", "errno", ENOSPC}, Call{"readdir", "errno", EIO}, Call{"malloc", "errno", ENOMEM, 23});

INSTANTIATE_TEST_SUITE_P(Calls, FaultLoop,
                         testing::Combine(kCalls, testing::Values(From::kSearchExpression, From::kBatchFile),
                                          testing::Bool()),
                         caseName);

}  // namespace
}  // namespace tamrix
