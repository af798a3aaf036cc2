#include "tests/program/copy_scene.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace tamrix::test {

CopyScene::CopyScene(const std::filesystem::path& parent) : dir_(parent) {
  for (const char* name : {"source", "target"}) std::filesystem::create_directory(dir_ / name);
}

std::string CopyScene::addLargeSource(std::string_view name, long long size) const {
  std::string path = addSource(name);
  std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size));
  return path;
}

std::vector<std::string> CopyScene::args(const std::vector<std::string>& more) const {
  std::vector<std::string> all = {"-srcpath=" + (dir_ / "source"), "-srcspec=*",
                                  "-dstpath=" + (dir_ / "target"), "-ignore-vendor-check"};
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

std::vector<std::string> CopyScene::batch(const Pairs& pairs, const std::string& params) const {
  const auto directory = [](const std::string& path) { return path.substr(0, path.rfind('/')); };
  const auto base = [](const std::string& path) { return path.substr(path.rfind('/') + 1); };
  std::string xml = "<tamrixspec version=\"1.0\"><params>" + params + "</params><data>\n";
  for (const auto& [from, to] : pairs) {
    const bool wildcard = base(from).find('*') != std::string::npos;
    const std::string name = wildcard ? "<srcspec>" + base(from) + "</srcspec>"
                                      : "<sf rename=\"" + base(to) + "\">" + base(from) + "</sf>";
    xml += "<file><srcpath>" + directory(from) + "</srcpath><dstpath>" + directory(to) + "</dstpath>" + name +
           "</file>\n";
  }
  return {"-batchfile=" + dir_.file("batch.xml", xml + "</data></tamrixspec>\n"), "-ignore-vendor-check"};
}

std::map<std::string, std::string> CopyScene::copied() const {
  std::map<std::string, std::string> found;
  const std::filesystem::path root = dir_ / "target";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    const std::string name = entry.path().string().substr(root.string().size() + 1);
    found[name] = entry.is_directory()      ? "<dir>"
                  : entry.is_regular_file() ? readFile(entry.path())
                                            : "<other>";
  }
  return found;
}

}  // namespace tamrix::test
