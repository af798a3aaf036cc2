// Typed message ids: what ties a catalogue id to the arguments that its text formats.
#pragma once

#include <string>

namespace tamrix {

// An argument for a text's %s: any C string or std::string, held by pointer for the length of a call.
class Text {
 public:
  Text(const char* text) : text_(text != nullptr ? text : "") {}  // NOLINT(google-explicit-constructor)
  Text(const std::string& text) : text_(text.c_str()) {}          // NOLINT(google-explicit-constructor)
  const char* get() const { return text_; }

 private:
  const char* text_;
};

// A message of the catalogue by number. Args are the argument types that its text formats, in order: Text
// (%s), char (%c), std::int32_t (%d), long (%ld), unsigned long (%lu), long long (%lld), unsigned long long
// (%llu). The constants, one per message, are in the generated header message_ids.h (namespace tamrix::msg);
// because the types travel with the id, a call with wrong arguments does not compile.
template <class... Args>
struct MessageId {
  int number;
};

}  // namespace tamrix
