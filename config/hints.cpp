#include "config/hints.h"

#include <algorithm>
#include <vector>

#include "config/ascii_case.h"

namespace tamrix {

namespace {

constexpr std::size_t kSteps = 2;
constexpr std::size_t kLettersPerStep = 3;

std::string joined(std::span<const std::string_view> values) {
  std::string text;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (i > 0) text += i + 1 < values.size() ? ", " : " or ";
    text += values[i];
  }
  return text;
}

// How many steps lead from one text to the other.
std::size_t distance(std::string_view one, std::string_view other) {
  std::vector<std::vector<std::size_t>> steps(one.size() + 1, std::vector<std::size_t>(other.size() + 1));
  const auto same = [&](std::size_t i, std::size_t j) { return toLower(one[i]) == toLower(other[j]); };
  for (std::size_t i = 0; i <= one.size(); ++i) {
    for (std::size_t j = 0; j <= other.size(); ++j) {
      std::size_t& best = steps[i][j];
      best = std::max(i, j);
      if (i == 0 || j == 0) continue;
      const std::size_t replaced = steps[i - 1][j - 1] + (same(i - 1, j - 1) ? 0 : 1);
      best = std::min({replaced, steps[i - 1][j] + 1, steps[i][j - 1] + 1});
      const bool swapped = i > 1 && j > 1 && same(i - 1, j - 2) && same(i - 2, j - 1);
      if (swapped) best = std::min(best, steps[i - 2][j - 2] + 1);
    }
  }
  return steps[one.size()][other.size()];
}

}  // namespace

bool isNearly(std::string_view one, std::string_view other) {
  const auto [shorter, longer] = std::minmax({one.size(), other.size()});
  const std::size_t most = std::min(kSteps, shorter / kLettersPerStep);
  // Of texts that are too long to compare, the lengths tell it.
  return longer - shorter <= most && distance(one, other) <= most;
}

OptionHint hintFor(std::span<const KnownProperty> table, std::string_view name, bool hasValue) {
  using Kind = OptionHint::Kind;
  const bool twoDashes = name.starts_with('-');
  if (twoDashes) name.remove_prefix(1);
  const auto found = [&](auto matches) {
    return std::find_if(table.begin(), table.end(),
                        [&](const KnownProperty& row) { return !row.isInternal && matches(row.name); });
  };
  const auto known = found([&](std::string_view row) { return row == name; });
  if (known != table.end()) {
    if (twoDashes) return {Kind::kOneDash, std::string(name), ""};
    if (!hasValue) return {Kind::kNoValue, std::string(name), ""};
    if (!known->accepted.empty()) return {Kind::kOtherValue, std::string(name), joined(known->accepted)};
    return {};
  }
  const auto near = found([&](std::string_view row) { return isNearly(name, row); });
  if (near == table.end()) return {};
  return {Kind::kOtherName, std::string(near->name), ""};
}

}  // namespace tamrix
