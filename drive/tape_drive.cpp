#include "drive/tape_drive.h"

#include <algorithm>
#include <cmath>

namespace tamrix::tape {

const Generation* findGeneration(std::string_view option) {
  const auto* const found = std::find_if(kGenerations.begin(), kGenerations.end(),
                                         [&](const Generation& row) { return row.option == option; });
  return found == kGenerations.end() ? nullptr : found;
}

Drive::Drive(const Generation& generation)
    : generation_(generation), bytesPerWrap_(generation.capacity / generation.wraps) {}

std::int64_t Drive::place(char partition, std::int64_t offset) const {
  return offset + (partition == 'b' ? static_cast<std::int64_t>(kIndexPartitionWraps * bytesPerWrap_) : 0);
}

double Drive::locateSeconds(std::int64_t from, std::int64_t to) const {
  if (from == to) return 0;
  double wound = kRestartSeconds +
                 std::abs(metresFromBeginning(from) - metresFromBeginning(to)) / kLocateMetresPerSecond;
  if (wrapOf(from) != wrapOf(to)) wound += kWrapChangeSeconds;
  return from < to ? std::min(wound, streamSeconds(from, to - from)) : wound;
}

double Drive::averageLocateSeconds() const {
  return generation_.metres / 3 / kLocateMetresPerSecond + kRestartSeconds + kWrapChangeSeconds;
}

double Drive::streamSeconds(std::int64_t from, std::int64_t count) const {
  const int turns = wrapOf(from + count) - wrapOf(from);
  return static_cast<double>(count) / generation_.bytesPerSecond + turns * kWrapChangeSeconds;
}

double Drive::rewindSeconds(std::int64_t from) const {
  return kRestartSeconds + metresFromBeginning(from) / kLocateMetresPerSecond;
}

double Drive::metresFromBeginning(std::int64_t place) const {
  const int wrap = wrapOf(place);
  const double part = static_cast<double>(place) / bytesPerWrap_ - wrap;
  return generation_.metres * (wrap % 2 == 0 ? part : 1 - part);
}

}  // namespace tamrix::tape
