// What a person may have meant by an option that was refused.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "config/known_properties.h"

namespace tamrix {

struct OptionHint {
  enum class Kind {
    kNone,
    kOneDash,     // the name is known, but has one dash more
    kNoValue,     // the name is known, but its value doesn't follow "="
    kOtherValue,  // the name is known, but the value is none of those it takes
    kOtherName    // another name is nearly the same
  };
  Kind kind = Kind::kNone;
  std::string name;    // of the option that may be meant
  std::string values;  // kOtherValue: those it takes, as in "a, b or c"
};

// `name` is what stood before "=", the first dash taken away; `hasValue` tells whether there was a "=".
OptionHint hintFor(std::span<const KnownProperty> table, std::string_view name, bool hasValue);

// Whether one text becomes the other by two steps at most, and one for every three letters: a letter more,
// less or other, or two that change places (optimal string alignment). Case counts for nothing.
bool isNearly(std::string_view one, std::string_view other);

}  // namespace tamrix
