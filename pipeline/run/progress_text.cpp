#include "pipeline/run/progress_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <vector>

namespace tamrix {

namespace {

constexpr double kPatience = 2;           // seconds until a standstill is told
constexpr std::size_t kNameAtLeast = 12;  // columns; for less, parts are left out
constexpr std::size_t kNameTooShort = 4;  // says nothing

struct Unit {
  double bytes;
  const char* name;
};
constexpr std::array kUnits = {Unit{1, "B"},     Unit{1e3, "kB"},  Unit{1e6, "MB"}, Unit{1e9, "GB"},
                               Unit{1e12, "TB"}, Unit{1e15, "PB"}, Unit{1e18, "EB"}};

template <class... Args>
std::string format(const char* text, Args... args) {
  std::array<char, 80> line{};
  (void)std::snprintf(line.data(), line.size(), text, args...);
  return line.data();
}

// The unit in which `bytes` are a number below 1000, also when shown.
const Unit& unitOf(double bytes) {
  const auto* const last = kUnits.end() - 1;
  return *std::find_if(kUnits.begin(), last, [&](const Unit& unit) { return bytes < 999.5 * unit.bytes; });
}

// As many decimals as make three digits; none for single bytes.
int decimalsOf(double bytes, const Unit& unit) {
  if (unit.bytes == 1) return 0;
  const double value = bytes / unit.bytes;
  return value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
}

// Rounded down. A source may have grown since it was listed.
int percentOf(std::int64_t part, std::int64_t whole) {
  if (whole <= 0) return 0;
  const double share = static_cast<double>(part) / static_cast<double>(whole);
  return static_cast<int>(std::min(1.0, share) * 100);
}

// A part of the line.
struct Part {
  std::string text;
  int rank;  // the one with the highest is the first to be left out
};
using Parts = std::vector<Part>;

std::size_t widthOf(const Parts& parts) {
  return std::accumulate(parts.begin(), parts.end(), std::size_t{0},
                         [](std::size_t sum, const Part& part) { return sum + part.text.size(); });
}

// The parts and behind them the name, as much as there is room for.
std::string joined(Parts parts, std::string_view name, int columns, Charset charset) {
  const auto room = static_cast<std::size_t>(std::max(columns, 0));
  const std::size_t wanted = std::min(name.size(), kNameAtLeast);
  while (parts.size() > 1 && widthOf(parts) + wanted > room) {
    const auto first = std::max_element(parts.begin(), parts.end(),
                                        [](const Part& a, const Part& b) { return a.rank < b.rank; });
    if (first->rank == 0) break;
    parts.erase(first);
  }
  std::string line;
  for (const Part& part : parts) line += part.text;
  line.resize(std::min(line.size(), room));
  constexpr std::string_view kBeforeName = ", ";
  const auto left = static_cast<int>(room) - static_cast<int>(line.size() + kBeforeName.size());
  const std::string shown = screenText(name, left, charset);
  if (shown.empty() || shown.size() < std::min(name.size(), kNameTooShort)) return line;
  return line.append(kBeforeName).append(shown);
}

Part waitPart(const ProgressSnapshot& now) {
  return {", waiting for the " + std::string(now.waitedFor) + " " + durationText(now.secondsWaited), 0};
}

bool standsStill(const ProgressSnapshot& now) {
  return !now.waitedFor.empty() && now.secondsWaited >= kPatience;
}

std::string copyingText(const ProgressSnapshot& now, int columns, Charset charset) {
  const auto total = static_cast<double>(now.totalBytes);
  const Unit& unit = unitOf(total);
  const int decimals = decimalsOf(total, unit);
  const int percent =
      now.totalBytes > 0 ? percentOf(now.bytes, now.totalBytes) : percentOf(now.files, now.totalFiles);
  Parts parts = {{format("%d%%", percent), 0},
                 {format(" %.*f/%.*f %s", decimals, static_cast<double>(now.bytes) / unit.bytes, decimals,
                         total / unit.bytes, unit.name),
                  3}};
  if (standsStill(now)) {
    parts.push_back(waitPart(now));
  } else {
    if (now.rate >= 0) parts.push_back({", " + bytesText(now.rate) + "/s", 1});
    if (now.secondsLeft >= 0) parts.push_back({", " + durationText(now.secondsLeft) + " left", 0});
  }
  parts.push_back(
      {format(", %lld/%lld files", static_cast<long long>(now.files), static_cast<long long>(now.totalFiles)),
       2});
  parts.push_back({format(", ring %d%%", now.ringPercent), 4});
  return joined(std::move(parts), now.file, columns, charset);
}

std::string listingText(const ProgressSnapshot& now, int columns, Charset charset) {
  Parts parts = {{"listing", 0}};
  if (now.filesListed == 0) {
    parts.push_back({format(", %lld files found", static_cast<long long>(now.filesFound)), 1});
  } else {
    parts.push_back({format(", %lld/%lld files", static_cast<long long>(now.filesListed),
                            static_cast<long long>(now.filesFound)),
                     1});
    parts.push_back({", " + bytesText(static_cast<double>(now.bytesListed)), 2});
  }
  if (standsStill(now)) parts.push_back(waitPart(now));
  return joined(std::move(parts), {}, columns, charset);
}

}  // namespace

std::string progressText(const ProgressSnapshot& now, int columns, Charset charset) {
  switch (now.phase) {
    case RunCounters::Phase::kListing:
      return listingText(now, columns, charset);
    case RunCounters::Phase::kSorting:
      return joined({{format("sorting %lld files", static_cast<long long>(now.filesListed)), 0}}, {}, columns,
                    charset);
    case RunCounters::Phase::kCopying:
      return copyingText(now, columns, charset);
    case RunCounters::Phase::kStarting:
      return "starting";
    case RunCounters::Phase::kEnding:
      return "ending";
  }
  return {};
}

std::string bytesText(double bytes) {
  const Unit& unit = unitOf(bytes);
  return format("%.*f %s", decimalsOf(bytes, unit), bytes / unit.bytes, unit.name);
}

std::string durationText(double seconds) {
  if (seconds < 1) return "<1 s";
  if (seconds < 100) return format("%.0f s", std::floor(seconds));
  const auto whole = static_cast<long long>(std::min(seconds, 1e15));
  const long long minutes = whole / 60;
  return minutes < 60 ? format("%lld:%02lld", minutes, whole % 60)
                      : format("%lld:%02lld:%02lld", minutes / 60, minutes % 60, whole % 60);
}

}  // namespace tamrix
