// A file's user extended attributes as they were collected from the source; see xattr(7).
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace tamrix {

// One attribute, seen through the list that holds it; valid as long as that list is not changed.
struct ExtendedAttr {
  const char* name;         // with its "user." prefix
  const char* value;        // null when the value is empty; a NUL that does not count follows the last byte
  std::size_t valueLength;  // bytes
};

// Purpose: keeps the attributes of one file in one packed piece of the arena, in the order in which they were
// added, because a copy list holds millions of them. Names are kept once per program: files on a volume share
// them.
// Threads: filled by the thread that lists, later by the reader stage's; at no time may two threads fill
// lists, even different ones. Then read from any thread.
class EaList {
 public:
  EaList() = default;
  EaList(const EaList&) = delete;
  EaList& operator=(const EaList&) = delete;

  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = ExtendedAttr;
    using difference_type = std::ptrdiff_t;
    using pointer = const ExtendedAttr*;
    using reference = ExtendedAttr;

    ExtendedAttr operator*() const;
    Iterator& operator++();
    bool operator==(const Iterator& other) const = default;

   private:
    friend class EaList;
    explicit Iterator(const char* at) : at_(at) {}
    const char* at_;
  };

  // Adds an attribute at the end. `name` must not be empty; `value` may be null when `valueLength` is 0.
  void add(std::string_view name, const void* value, std::size_t valueLength);
  // Makes room for `count` attributes with values of `valueBytes` together, so that adding them takes one
  // piece of just that size.
  void reserve(std::size_t count, std::size_t valueBytes);
  void clear() { size_ = 0; }

  // The first attribute named `name`; end() when there is none.
  Iterator find(std::string_view name) const;

  Iterator begin() const { return Iterator(packed_); }
  Iterator end() const { return Iterator(packed_ + size_); }
  bool empty() const { return size_ == 0; }

 private:
  void makeRoom(std::size_t bytes);
  void append(const void* data, std::size_t bytes);

  // Per attribute: pointer to the name, 32-bit value length, the value, NUL; unaligned.
  char* packed_ = nullptr;
  std::uint32_t size_ = 0;  // bytes in use
  std::uint32_t room_ = 0;  // bytes in all
};

}  // namespace tamrix
