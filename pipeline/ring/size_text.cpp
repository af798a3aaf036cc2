#include "pipeline/ring/size_text.h"

#include <limits>

namespace tamrix {

namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

bool isDigit(char c) { return '0' <= c && c <= '9'; }

std::int64_t saturatingMultiply(std::int64_t value, std::int64_t factor) {
  return value > kMax / factor ? kMax : value * factor;
}

// The factor of a unit character, 0 for any other.
std::int64_t unitFactor(char c) {
  switch (c) {
    case 'B':
      return 1;
    case 'K':
      return std::int64_t{1} << 10;
    case 'M':
      return std::int64_t{1} << 20;
    case 'G':
      return std::int64_t{1} << 30;
    default:
      return 0;
  }
}

}  // namespace

SizeText parseSize(std::string_view text) {
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  if (text.empty() || !isDigit(text.front())) return {SizeText::Status::kNotNumeric, 0, text};

  std::int64_t value = 0;
  for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1)) {
    const std::int64_t digit = text.front() - '0';
    value = saturatingMultiply(value, 10);
    value = value > kMax - digit ? kMax : value + digit;
  }
  if (!text.empty()) {
    const std::int64_t factor = unitFactor(text.front());
    if (factor == 0) return {SizeText::Status::kUnknownUnit, 0, text};
    value = saturatingMultiply(value, factor);
    const bool plainBytes = text.front() == 'B';
    text.remove_prefix(1);
    if (!plainBytes && text.starts_with('B')) text.remove_prefix(1);
    if (!text.empty()) return {SizeText::Status::kUnknownUnit, 0, text};
  }
  return {SizeText::Status::kOk, negative ? -value : value, {}};
}

}  // namespace tamrix
