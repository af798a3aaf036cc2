#include "reader/record/file_path.h"

#include <array>
#include <cstring>
#include <functional>
#include <vector>

#include "reader/record/arena.h"
#include "reader/record/number_table.h"

namespace tamrix {

namespace {

struct Directories {
  std::vector<const char*> texts;
  NumberTable byText;  // places in texts
};

std::size_t directoryLength(std::string_view path) { return path.rfind('/') + 1; }

}  // namespace

const char* FilePath::sharedDirectory(std::string_view directory) {
  static auto* const all = new Directories;
  if (directory.empty()) return kNothing;
  // Nearly always one of these: that of the sources, or that of their destinations.
  static std::array<const char*, 2> latest = {kNothing, kNothing};
  for (const char* const known : latest) {
    if (directory == known) return known;
  }
  const std::size_t hash = std::hash<std::string_view>()(directory);
  const auto found =
      all->byText.find(hash, [&](NumberTable::Number number) { return directory == all->texts[number]; });
  const char* text = nullptr;
  if (found != NumberTable::kNone) {
    text = all->texts[found];
  } else {
    text = copyToArena(directory);
    all->texts.push_back(text);
    all->byText.add(hash, static_cast<NumberTable::Number>(all->texts.size() - 1));
  }
  latest = {text, latest[0]};
  return text;
}

FilePath::FilePath(std::string_view path) : FilePath(path, FilePath()) {}

FilePath::FilePath(std::string_view path, const FilePath& other) {
  const std::size_t length = directoryLength(path);
  const std::string_view name = path.substr(length);
  directory_ = sharedDirectory(path.substr(0, length));
  name_ = name == other.name_ ? other.name_ : copyToArena(name);
}

std::string FilePath::text() const {
  std::string path;
  path.reserve(std::strlen(directory_) + std::strlen(name_));
  copyTo(path);
  return path;
}

bool FilePath::operator==(std::string_view path) const {
  const std::size_t length = directoryLength(path);
  return path.substr(0, length) == directory_ && path.substr(length) == name_;
}

bool FilePath::operator<(const FilePath& other) const {
  if (directory_ == other.directory_) return std::strcmp(name_, other.name_) < 0;
  const char* mine = directory_;
  const char* others = other.directory_;
  while (*mine == *others) {  // ends, as the directories differ
    ++mine;
    ++others;
  }
  // Where one directory is the beginning of the other, its name meets the rest of the other. That has a slash
  // and the name has none, so the names behind it don't matter.
  return std::strcmp(*mine == '\0' ? name_ : mine, *others == '\0' ? other.name_ : others) < 0;
}

}  // namespace tamrix
