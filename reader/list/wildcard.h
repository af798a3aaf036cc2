// Wildcards in file names.
#pragma once

#include <string_view>

namespace tamrix {

// Whether all of `name` matches `pattern`, byte by byte and case-sensitive: '*' stands for any number of
// characters, '?' for one; nothing escapes them. Costs at most pattern length times name length.
// Kept: a '?' at the end of the name stands for nothing, so 'a?' matches 'a' ('a?b' does not).
bool wildcardMatch(std::string_view pattern, std::string_view name);

}  // namespace tamrix
