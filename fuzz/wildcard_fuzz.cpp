// Matches wildcards twice: as the program does, and as the rules read, by a table of all positions.
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "reader/wildcard.h"

namespace {

// matches[n]: whether the pattern from the current character on matches the name from n on.
bool obviousMatch(std::string_view pattern, std::string_view name) {
  const std::size_t end = name.size();
  std::vector<bool> matches(end + 1, false);
  matches[end] = true;
  for (std::size_t p = pattern.size(); p-- > 0;) {
    std::vector<bool> longer(end + 1, false);
    for (std::size_t n = 0; n <= end; ++n) {
      if (pattern[p] == '*') {
        for (std::size_t to = n; to <= end; ++to) longer[n] = longer[n] || matches[to];
      } else if (pattern[p] == '?') {
        longer[n] = matches[n < end ? n + 1 : end];
      } else {
        longer[n] = n < end && pattern[p] == name[n] && matches[n + 1];
      }
    }
    matches = longer;
  }
  return matches[0];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::size_t cut = input.find('\n');
  const std::string_view pattern = input.substr(0, cut);
  const std::string_view name = cut == std::string_view::npos ? "" : input.substr(cut + 1);
  if (tamrix::wildcardMatch(pattern, name) != obviousMatch(pattern, name)) std::abort();
  return 0;
}
