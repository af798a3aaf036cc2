#include "log/screen_text.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <array>
#include <cstdint>
#include <cstdio>

namespace tamrix {

namespace {

constexpr UChar32 kFirstBeyondAscii = 0x80;
constexpr UChar32 kFirstBeyondBmp = 0x10000;

std::string escaped(const char* format, unsigned value) {
  std::array<char, 16> text{};
  (void)std::snprintf(text.data(), text.size(), format, value);
  return text.data();
}

// Takes the character that begins at `at`; negative when what is there is no text.
UChar32 nextCharacter(std::string_view text, std::size_t& at) {
  UChar32 character = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"  // in the library's macro
  U8_NEXT(text.data(), at, text.size(), character);
#pragma GCC diagnostic pop
  return character;
}

bool isInvisible(UChar32 character) {
  constexpr std::uint32_t kInvisible =
      U_GC_CC_MASK | U_GC_CF_MASK | U_GC_CS_MASK | U_GC_CN_MASK | U_GC_ZL_MASK | U_GC_ZP_MASK;
  return (U_GET_GC_MASK(character) & kInvisible) != 0;
}

// Of a visible character.
int columnsOf(UChar32 character) {
  if ((U_GET_GC_MASK(character) & (U_GC_MN_MASK | U_GC_ME_MASK)) != 0) return 0;
  const int syllablePart = u_getIntPropertyValue(character, UCHAR_HANGUL_SYLLABLE_TYPE);
  if (syllablePart == U_HST_VOWEL_JAMO || syllablePart == U_HST_TRAILING_JAMO) return 0;
  const int width = u_getIntPropertyValue(character, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_FULLWIDTH || width == U_EA_WIDE ? 2 : 1;
}

}  // namespace

std::string screenText(std::string_view text, int columns, Charset charset) {
  std::string shown;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t begin = at;
    const UChar32 character = nextCharacter(text, at);
    const auto byte = static_cast<unsigned char>(text[begin]);
    std::string piece(text.substr(begin, at - begin));
    int width = 0;
    if (character < 0 || (charset == Charset::kAscii && character >= kFirstBeyondAscii)) {
      at = begin + 1;
      piece = escaped("\\x%02x", byte);
    } else if (isInvisible(character)) {
      const bool isAscii = character < kFirstBeyondAscii;
      piece = escaped(isAscii                       ? "\\x%02x"
                      : character < kFirstBeyondBmp ? "\\u%04x"
                                                    : "\\U%08x",
                      static_cast<unsigned>(character));
    } else {
      width = columnsOf(character) - static_cast<int>(piece.size());
    }
    width += static_cast<int>(piece.size());
    if (width > columns) break;
    columns -= width;
    shown += piece;
  }
  return shown;
}

}  // namespace tamrix
