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
  std::string xml = "<tamrixspec version=\"1.0\"><params>" + params + "</params><data>\n";
  for (const auto& [from, to] : pairs) {
    const std::size_t fromBase = from.rfind('/');
    const std::size_t toBase = to.rfind('/');
    xml += "<file><srcpath>" + from.substr(0, fromBase) + "</srcpath><dstpath>" + to.substr(0, toBase) +
           "</dstpath><sf rename=\"" + to.substr(toBase + 1) + "\">" + from.substr(fromBase + 1) +
           "</sf></file>\n";
  }
  return {"-batchfile=" + dir_.file("batch.xml", xml + "</data></tamrixspec>\n"), "-ignore-vendor-check"};
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
