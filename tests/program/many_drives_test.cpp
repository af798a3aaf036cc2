// The example of docs/many-drives.md.
#include <cstdlib>

#include "tests/program/copy_scene.h"
#include "tests/support/mounted_volume.h"

namespace tamrix {
namespace {

using test::MountedVolume;

TEST(ManyDrives, exampleCopiesEachVolumeByAProcessOfItsOwn) {
  std::vector<MountedVolume::File> files;
  for (const char* name : {"c", "a", "b/x y"})
    files.push_back({name, std::string(100000, name[0]), 'b', 1000 - 7 * name[0]});
  MountedVolume first(files, {"-uuid=11111111-a"});
  MountedVolume second(files, {"-uuid=22222222-b"});
  if (!first.isMounted()) GTEST_SKIP() << "mounting a FUSE file system is refused here";
  const CopyScene scene;
  CopyScene::Pairs pairs;
  for (const MountedVolume::File& file : files) {
    pairs.emplace_back(first / file.path, scene.destination("1/" + file.path));
    pairs.emplace_back(second / file.path, scene.destination("2/" + file.path));
  }
  const std::string plans = scene.dir() / "the plans";
  const ProgramRun plan =
      runProgram({scene.batch(pairs).front(), "-split=" + plans}, {.program = TAMRIX_PLAN_PROGRAM});
  EXPECT_EQ(plan.status, 0) << plan;
  const std::string path = std::string(TAMRIX_PROGRAM_DIR) + ":" + std::getenv("PATH");
  const ProgramOptions script = {.environment = {{"PATH", path}, {"HOME", scene.dir().path()}},
                                 .program = TAMRIX_SOURCE_DIR "/docs/examples/many-drives.sh"};
  const ProgramRun run = runProgram({plans, "2"}, script);
  EXPECT_EQ(run.status, 0) << run;
  for (const char* copy : {"1/", "2/"}) {
    for (const MountedVolume::File& file : files)
      EXPECT_TRUE(test::readFile(scene.destination(copy + file.path)) == file.content) << copy << file.path;
  }
  // Each run read its volume from front to back.
  for (MountedVolume* volume : {&first, &second})
    EXPECT_EQ(volume->unmount().reads, (std::vector<std::string>{"c", "b/x y", "a"}));
  EXPECT_EQ(runProgram({plans, "2"}, script).status, 2);  // the volumes are gone
  EXPECT_NE(test::readFile(plans + ".logs/11111111-a.log").find("not a valid file"), std::string::npos);
}

}  // namespace
}  // namespace tamrix
