// Case of option names, whatever the locale.
#pragma once

namespace tamrix {

// `c` in lower case if it is an ASCII letter.
constexpr char toLower(char c) { return 'A' <= c && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

}  // namespace tamrix
