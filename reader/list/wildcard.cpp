#include "reader/list/wildcard.h"

namespace tamrix {

bool wildcardMatch(std::string_view pattern, std::string_view name) {
  std::size_t p = 0;
  std::size_t n = 0;
  // Only the last '*' needs to be tried again: what stands before it matches as early as it can, and a later
  // match there leaves no more of the name to the rest of the pattern.
  std::size_t afterStar = std::string_view::npos;
  std::size_t starEnd = 0;  // how far the last '*' reaches in the name
  for (;;) {
    if (p < pattern.size() && pattern[p] == '*') {
      afterStar = ++p;
      starEnd = n;
    } else if (p < pattern.size() && pattern[p] == '?') {
      ++p;
      if (n < name.size()) ++n;
    } else if (p < pattern.size() && n < name.size() && pattern[p] == name[n]) {
      ++p;
      ++n;
    } else if (p == pattern.size() && n == name.size()) {
      return true;
    } else if (afterStar != std::string_view::npos && starEnd < name.size()) {
      p = afterStar;
      n = ++starEnd;
    } else {
      return false;
    }
  }
}

}  // namespace tamrix
