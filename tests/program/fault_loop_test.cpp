// Every system call of a run fails once, one run per call: whatever fails, the run ends, each destination is
// absent or complete, and status and messages say which.
//
// The faults come from a preloaded shared object (tests/support/fault_shim.cpp).
#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <tuple>

#include "reader/record/unique_fd.h"
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

const std::string kOld = "what was there before";
const Contents kSources = {{"empty", ""},
                           {"small", "small content"},
                           {"sub/deep/multi", std::string(9000, 'm') + std::string(9000, '\0') + "end"},
                           {"zeros", std::string(12288, '\0')}};

// Runs with the n-th such call on a path below `where` failing.
ProgramRun runWithFault(const CopyScene& scene, const std::vector<std::string>& args, const Call& call, int n,
                        const std::string& where) {
  const std::string fault = std::string(call.name) + " " + std::to_string(n) + " " + call.action + " " +
                            std::to_string(call.value) + " " + where;
  return runProgram(args, {.environment = {{"LD_PRELOAD", TAMRIX_FAULT_SHIM},
                                           {"TAMRIX_FAULT", fault},
                                           {"TAMRIX_FAULT_LOG", scene.dir() / "fired"}}});
}

void checkOutcome(const CopyScene& scene, const ProgramRun& run) {
  Contents left = scene.copied();
  std::erase_if(left, [](const auto& entry) { return entry.second == "<dir>"; });
  EXPECT_EQ(left["bystander"], kOld);
  std::size_t whole = 0;
  for (const auto& [name, content] : kSources) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(test::readFile(scene.source(name)) == content) << "source changed";
    const auto found = left.extract(name);
    const bool copied = found && found.mapped() == content;
    EXPECT_TRUE(copied || !found || (name == "small" && found.mapped() == kOld)) << "left half";
    whole += copied ? 1 : 0;
    const auto says = [&, &from = name](auto status) {
      return run.count(text(status, scene.source(from), scene.destination(from))) > 0;
    };
    const bool good = says(msg::kFileWriterStatusSuccess) || says(msg::kFileWriterStatusWarning);
    const bool bad = !good && says(msg::kFileWriterStatusError);
    EXPECT_TRUE(good ? copied : !bad || !found);
    // Without a status line it may be complete, but its lock could not be released.
    EXPECT_TRUE(good || bad || !copied || run.err.find("ERROR Unlocking file") != run.err.npos);
  }
  EXPECT_EQ(left.size(), 1U) << "a file that is nobody's";
  EXPECT_TRUE(whole == kSources.size() || run.status != 0) << "missing files without a word";
  // Without its texts, the program has no word to say.
  const std::string all = run.out + run.err;
  const auto words = {"ERROR", "requires", "Failed to", "Unable to"};
  EXPECT_TRUE(
      run.status <= 0 || all.empty() ||
      std::any_of(words.begin(), words.end(), [&](const char* word) { return all.find(word) != all.npos; }))
      << "failed without a word";
}

// A directory that could not be examined once is not taken for one that does not exist: what is in it may be
// a source.
TEST(FailedStat, ofADirectoryHidesNothingInIt) {
  for (int n = 1; n < 12; ++n) {
    const CopyScene scene;
    const std::string a = scene.addSource("a", "a");
    const std::string b = scene.addSource("b", std::string(3000000, 'b'));
    std::filesystem::create_symlink(b, scene.destination("b"));
    const auto args = scene.batch({{a, scene.destination("a")}, {b, scene.destination("b")}});
    const ProgramRun run = runWithFault(scene, args, {"stat", "errno", EIO}, n, scene.dir() / "target");
    EXPECT_EQ(run.status, 1) << n << run;
    EXPECT_TRUE(test::readFile(b) == std::string(3000000, 'b')) << n << run;
  }
}

// The file may be complete when the error comes: the run waits for a second one then, which this process
// holds.
TEST(FailedWriteBack, takesTheFileBack) {
  const CopyScene scene;
  const std::string a = scene.addSource("a", std::string(20 << 20, 'a'));
  // As large as the memory, so that the run is a long one: of a file that is all hole, all counts.
  std::filesystem::resize_file(scene.addSource("hole", ""),
                               static_cast<std::uintmax_t>(sysconf(_SC_PHYS_PAGES)) *
                                   static_cast<std::uintmax_t>(sysconf(_SC_PAGESIZE)));
  std::signal(SIGIO, SIG_IGN);
  const UniqueFd b(open(scene.addSource("b").c_str(), O_RDWR | O_CLOEXEC));
  if (fcntl(b.get(), F_SETLEASE, F_WRLCK) != 0) GTEST_SKIP() << "no leases here";
  const std::string to = scene.destination("a");
  const ProgramRun run =
      runWithFault(scene, scene.args({"-sparse"}), {"sync_file_range", "errno", EIO}, 2, to);
  EXPECT_EQ(run.status, 1) << run;
  for (const std::string& line :
       {text(msg::kFileWriterFailed, strerror(EIO)), text(msg::kFileWriterFailedFile, to),
        text(msg::kFileWriterStatusError, a, to), text(msg::kFileWriterDeleted, to),
        text(msg::kMainFilesNotCopied, 0, 3)})
    EXPECT_EQ(run.count(line), 1) << line << run;
  EXPECT_FALSE(std::filesystem::exists(to)) << run;
}

class FaultLoop : public testing::TestWithParam<std::tuple<Call, From, bool>> {};

// Makes each call of the run fail in turn, until there is none left that could.
TEST_P(FaultLoop, leavesWholeFilesOrNoneAndSaysWhich) {
  const auto& [call, from, sparse] = GetParam();
  bool fired = true;
  int n = 1;
  for (; fired; n += call.step) {
    // Made anew for each run because a run changes it.
    const CopyScene scene;
    CopyScene::Pairs pairs;
    for (const auto& [name, content] : kSources) {
      test::setXattr(scene.addSource(name, content), "user.a", "1");
      pairs.emplace_back(scene.source(name), scene.destination(name));
    }
    // One destination exists, and a file that is no business of the run lies beside it.
    for (const char* name : {"small", "bystander"}) scene.addDestination(name, kOld);
    std::vector<std::string> args =
        from == From::kBatchFile ? scene.batch(pairs) : scene.args({"-recursive"});
    args.insert(args.end(), {"-loglevel=PROGRESS", "-buffer-size=4KB", "-total-buffer-size=1MB",
                             sparse ? "-sparse" : "-sparse=disable"});
    const ProgramRun run = runWithFault(scene, args, call, n, scene.dir().path());
    checkOutcome(scene, run);
    fired = std::filesystem::exists(scene.dir() / "fired");
    EXPECT_TRUE(fired || run.status == 0) << "without any fault";
    ASSERT_FALSE(HasFailure()) << "with fault at call " << n << run;
  }
  // Only a sparse run sizes its files beforehand.
  EXPECT_TRUE(n > 1 + call.step || (std::string(call.name) == "ftruncate" && !sparse) ||
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
