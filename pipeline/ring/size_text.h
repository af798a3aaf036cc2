// Sizes as operators write them: 400MB, 128K, 131072, 2GB.
#pragma once

#include <cstdint>
#include <string_view>

namespace tamrix {

struct SizeText {
  enum class Status { kOk, kNotNumeric, kUnknownUnit };

  Status status = Status::kOk;
  std::int64_t bytes = 0;     // kOk: the size; saturates at the largest 64-bit number
  std::string_view offender;  // otherwise: the text from the offending character on
};

// Reads [-]digits, then optionally B, or one of K M G (powers of 1024) with or without B; upper case only,
// nothing behind it. A sign is accepted here and left to the caller to judge.
SizeText parseSize(std::string_view text);

}  // namespace tamrix
