#include "pipeline/run/pace.h"

#include <algorithm>
#include <cmath>

namespace tamrix {

namespace {

// Time constants, in seconds.
constexpr double kRecent = 5;
constexpr double kLongTermAtLeast = 180;
constexpr double kLongTermShare = 1.0 / 8;  // of the time since the first byte
// Seconds of moving bytes that make a rate.
constexpr double kEnough = 1;

}  // namespace

void Pace::add(double now, std::int64_t bytes, std::int64_t steps) {
  const double seconds = begun_ ? now - now_ : 0;
  if (!begun_ || steps != steps_) lastMove_ = now;
  if (bytes_ > 0) {
    moving_ += seconds;
    const auto moved = static_cast<double>(bytes - bytes_);
    recent_.add(moved, seconds, kRecent);
    longTerm_.add(moved, seconds, std::max(kLongTermAtLeast, moving_ * kLongTermShare));
  }
  begun_ = true;
  now_ = now;
  bytes_ = bytes;
  steps_ = steps;
}

void Pace::skipTo(double now) {
  lastMove_ += now - now_;
  now_ = now;
}

double Pace::rate() const { return moving_ < kEnough ? kUnknown : recent_.rate(); }

double Pace::secondsLeft(std::int64_t remaining) const {
  const double rate = longTerm_.rate();
  return moving_ >= kEnough && rate > 0 ? static_cast<double>(remaining) / rate : kUnknown;
}

void Pace::Mean::add(double moreBytes, double moreSeconds, double constant) {
  const double kept = std::exp(-moreSeconds / constant);
  bytes = bytes * kept + moreBytes;
  seconds = seconds * kept + moreSeconds;
}

}  // namespace tamrix
