// Text as a terminal shows it: how wide it is, and what must not reach the terminal as it is.
#pragma once

#include <string>
#include <string_view>

namespace tamrix {

enum class Charset { kUtf8, kAscii };

// The beginning of `text`, as much as takes no more than `columns` columns, with all that has no shape of its
// own escaped: "\x1b" a byte that is no text or a control character, "\u202e" an invisible character, such as
// one that changes the direction of writing. On a terminal of ASCII all other bytes are escaped. Wide
// characters take two columns, combining marks none (Unicode Standard Annex #11).
std::string screenText(std::string_view text, int columns, Charset charset);

}  // namespace tamrix
