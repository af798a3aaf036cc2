#include "reader/record/extended_attr.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_set>

#include "reader/record/arena.h"

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
  makeRoom(kHeaderSize + valueLength + 1);
  append(&shared, sizeof(shared));
  append(&length, sizeof(length));
  append(value, length);
  append("", 1);
}

void EaList::reserve(std::size_t count, std::size_t valueBytes) {
  makeRoom(count * (kHeaderSize + 1) + valueBytes);
}

void EaList::makeRoom(std::size_t bytes) {
  if (bytes <= room_ - size_) return;
  const std::size_t room = size_ == 0 ? bytes : std::max<std::size_t>(size_ + bytes, std::size_t{2} * room_);
  char* const larger = takeFromArena(room);
  std::copy_n(packed_, size_, larger);
  packed_ = larger;
  room_ = static_cast<std::uint32_t>(room);
}

void EaList::append(const void* data, std::size_t bytes) {
  std::copy_n(static_cast<const char*>(data), bytes, packed_ + size_);
  size_ += static_cast<std::uint32_t>(bytes);
}

EaList::Iterator EaList::find(std::string_view name) const {
  return std::find_if(begin(), end(), [&](const ExtendedAttr& attr) { return name == attr.name; });
}

}  // namespace tamrix
