#include "reader/record/extended_attr.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

namespace tamrix {

namespace {

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

// The one copy of an attribute name; it lives until the program ends.
const char* sharedName(std::string_view name) {
  static std::unordered_set<std::string, TextHash, std::equal_to<>> names;
  auto found = names.find(name);
  if (found == names.end()) found = names.emplace(name).first;
  return found->c_str();
}

struct Header {
  const char* name;
  std::uint32_t valueLength;
};
constexpr std::size_t kHeaderSize = sizeof(const char*) + sizeof(std::uint32_t);

Header readHeader(const char* at) {
  Header header;
  std::memcpy(&header.name, at, sizeof(header.name));
  std::memcpy(&header.valueLength, at + sizeof(header.name), sizeof(header.valueLength));
  return header;
}

}  // namespace

ExtendedAttr EaList::Iterator::operator*() const {
  const Header header = readHeader(at_);
  return {header.name, header.valueLength == 0 ? nullptr : at_ + kHeaderSize, header.valueLength};
}

EaList::Iterator& EaList::Iterator::operator++() {
  at_ += kHeaderSize + readHeader(at_).valueLength + 1;
  return *this;
}

void EaList::add(std::string_view name, const void* value, std::size_t valueLength) {
  const char* const shared = sharedName(name);
  const auto length = static_cast<std::uint32_t>(valueLength);
  packed_.append(reinterpret_cast<const char*>(&shared), sizeof(shared));
  packed_.append(reinterpret_cast<const char*>(&length), sizeof(length));
  if (length != 0) packed_.append(static_cast<const char*>(value), length);
  packed_.push_back('\0');
}

void EaList::reserve(std::size_t count, std::size_t valueBytes) {
  if (count != 0) packed_.reserve(packed_.size() + count * (kHeaderSize + 1) + valueBytes);
}

EaList::Iterator EaList::find(std::string_view name) const {
  return std::find_if(begin(), end(), [&](const ExtendedAttr& attr) { return name == attr.name; });
}

}  // namespace tamrix
