// Copies that were cut off are completed by plans of what is missing.
#include <sys/stat.h>

#include <csignal>
#include <random>

#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

// What a copy carries over, by path below a directory.
std::map<std::string, std::string> stateOf(const std::string& root) {
  std::map<std::string, std::string> all;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    struct stat status {};
    if (!entry.is_regular_file() || stat(entry.path().c_str(), &status) != 0) continue;
    all[entry.path().string().substr(root.size())] =
        std::to_string(status.st_mtim.tv_sec) + ' ' + std::to_string(status.st_mtim.tv_nsec / 1000) + ' ' +
        std::to_string(status.st_mode) + ' ' + test::getXattr(entry.path(), "user.name") + ' ' +
        test::readFile(entry.path());
  }
  return all;
}

// Waits until a run has begun a file that is picked at random, and has written a random part of it.
void waitSomewhere(RunningProgram& run, const std::string& name, const CopyScene& scene,
                   std::mt19937& random) {
  ASSERT_TRUE(run.waitForText("Copy " + scene.source(name) + " to "));
  struct stat status {};
  const std::size_t part = random() % (std::filesystem::file_size(scene.source(name)) + 1);
  while (stat(scene.destination(name).c_str(), &status) != 0 ||
         static_cast<std::size_t>(status.st_size) < part) {
  }
}

TEST(Resume, runsThatWereKilledAreCompletedInAsManyRounds) {
  const unsigned seed = std::random_device()();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  for (int repetition = 0; repetition < 5; ++repetition) {
    const CopyScene scene;
    std::vector<std::string> left;  // names of the files that are not copied yet
    for (int i = 0; i < 20; ++i) {
      left.push_back("d" + std::to_string(i % 4) + "/f" + std::to_string(i));
      const std::size_t size = random() % 4 != 0 ? random() % 10000 : 2000000;
      test::setXattr(scene.addSource(left.back(), std::string(size, static_cast<char>(random()))),
                     "user.name", left.back());
    }
    const std::string rest = scene.dir() / "rest.xml";
    std::vector<std::string> args = scene.args({"-recursive", "-buffer-size=4KB", "-total-buffer-size=64KB"});
    constexpr int kKills = 3;
    for (int round = 0; !left.empty(); ++round) {
      ASSERT_LE(round, kKills);
      RunningProgram run(args);
      if (round < kKills) {
        waitSomewhere(run, left[random() % left.size()], scene, random);
        run.signal(random() % 3 != 0 ? SIGKILL : SIGTERM);
      }
      run.wait();
      const ProgramRun plan = runProgram(scene.args({"-recursive", "-missing", "-output=" + rest}),
                                         {.program = TAMRIX_PLAN_PROGRAM});
      ASSERT_EQ(plan.status, 0) << plan;
      const std::string missing = test::readFile(rest);
      std::erase_if(left, [&](const std::string& name) {
        return missing.find("<sf>" + name + "</sf>") == std::string::npos;
      });
      args = {"-batchfile=" + rest, "-buffer-size=4KB", "-total-buffer-size=64KB"};
    }
    EXPECT_TRUE(stateOf(scene.source("")) == stateOf(scene.destination("")));
  }
}

}  // namespace
}  // namespace tamrix
