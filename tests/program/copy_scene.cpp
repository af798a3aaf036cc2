#include "tests/program/copy_scene.h"

namespace tamrix::test {

CopyScene::CopyScene() {
  for (const char* name : {"source", "target"}) std::filesystem::create_directory(dir_ / name);
}

std::string CopyScene::addEndlessSource(std::string_view name) const {
  std::string path = addSource(name);
  std::filesystem::resize_file(path, 1ULL << 33);
  return path;
}

std::vector<std::string> CopyScene::args(const std::vector<std::string>& more) const {
  std::vector<std::string> all = {"-srcpath=" + (dir_ / "source"), "-srcspec=*",
                                  "-dstpath=" + (dir_ / "target"), "-ignore-vendor-check"};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

std::vector<std::string> CopyScene::batch(const Pairs& pairs, const std::string& params) const {
  return {"-batchfile=" + dir_.batchFile(pairs, params), "-ignore-vendor-check"};
}

Contents CopyScene::copied() const {
  Contents found;
  const std::filesystem::path root = dir_ / "target";
  std::error_code notThere;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root, notThere)) {
    const std::string name = entry.path().string().substr(root.string().size() + 1);
    found[name] = entry.is_directory()      ? "<dir>"
                  : entry.is_regular_file() ? readFile(entry.path())
                                            : "<other>";
  }
  return found;
}

}  // namespace tamrix::test
