#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <utility>

namespace tamrix::test {

TempDir::TempDir() {
  std::string name = (std::filesystem::temp_directory_path() / "tamrix-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) std::abort();
  path_ = name;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::file(std::string_view name, std::string_view content) const {
  const std::filesystem::path path = std::filesystem::path(path_) / name;
  std::filesystem::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary);
  out << content;
  out.close();
  EXPECT_TRUE(out.good()) << path;
  return path.string();
}

std::string TempDir::tapeFile(std::string_view name, std::string_view content, std::string_view volumeUuid,
                              char partition, long long startBlock) const {
  const std::string path = file(name, content);
  setXattr(path, "user.ltfs.startblock", std::to_string(startBlock));
  setXattr(path, "user.ltfs.partition", std::string(1, partition));
  setXattr(path, "user.ltfs.volumeUUID", volumeUuid);
  setXattr(path, "user.ltfs.softwareVendor", "VOQ");
  return path;
}

std::string TempDir::batchFile(const std::vector<std::pair<std::string, std::string>>& pairs,
                               const std::string& params) const {
  std::string xml = "<tamrixspec version=\"1.0\"><params>" + params + "</params><data>\n";
  for (const auto& [from, to] : pairs) {
    const std::size_t fromBase = from.rfind('/');
    const std::size_t toBase = to.rfind('/');
    xml += "<file><srcpath>" + from.substr(0, fromBase) + "</srcpath><dstpath>" + to.substr(0, toBase) +
           "</dstpath><sf rename=\"" + to.substr(toBase + 1) + "\">" + from.substr(fromBase + 1) +
           "</sf></file>\n";
  }
  return file("batch.xml", xml + "</data></tamrixspec>\n");
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return std::move(content).str();
}

void setXattr(const std::string& path, const std::string& name, std::string_view value) {
  EXPECT_EQ(setxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0), 0) << path << ' ' << name;
}

std::string getXattr(const std::string& path, const std::string& name) {
  std::string value(65536, '\0');
  const ssize_t n = getxattr(path.c_str(), name.c_str(), value.data(), value.size());
  if (n < 0) return "<none>";
  value.resize(static_cast<std::size_t>(n));
  return value;
}

}  // namespace tamrix::test
