#include "model/drive_buffer.h"

#include <algorithm>

namespace tamrix::model {

namespace {

constexpr double kStepSeconds = 0.0005;
constexpr double kNativeShare = 0.5;   // of the buffer: with work for so much it runs at its native rate
constexpr double kRestartShare = 0.9;  // with work for so much it starts again

}  // namespace

DriveBuffer::DriveBuffer(const Figures& figures, Direction direction, double now)
    : figures_(figures),
      direction_(direction),
      now_(now),
      work_(direction == Direction::kRead ? figures.capacity : 0),
      runs_(direction == Direction::kRead) {}

double DriveBuffer::move(double now, std::int64_t count) {
  advance(now);
  const auto bytes = static_cast<double>(count);
  while (work_ + bytes > figures_.capacity) advance(now_ + kStepSeconds);
  work_ += bytes;
  return now_;
}

double DriveBuffer::finish(double now) {
  advance(now);
  isFinishing_ = true;
  while (direction_ == Direction::kWrite && work_ > 0) advance(now_ + kStepSeconds);
  return now_;
}

void DriveBuffer::advance(double to) {
  while (now_ < to) {
    const double seconds = std::min(kStepSeconds, to - now_);
    step(seconds);
    now_ += seconds;
  }
}

void DriveBuffer::step(double seconds) {
  if (!runs_) {
    const bool startsNow = starting_ == 0 && (isFinishing_ || work_ >= kRestartShare * figures_.capacity);
    // The first start of a tape that is written is not one after a stop.
    if (startsNow) starting_ = stops_ == 0 ? kStepSeconds : figures_.restartSeconds;
    if (starting_ == 0) return;
    starting_ = std::max(0.0, starting_ - seconds);
    runs_ = starting_ == 0;
    return;
  }
  const double share = std::min(1.0, work_ / figures_.capacity / kNativeShare);
  const double rate = figures_.lowestRate + share * (figures_.nativeRate - figures_.lowestRate);
  work_ = std::max(0.0, work_ - rate * seconds);
  if (work_ > 0 || isFinishing_) return;
  runs_ = false;
  ++stops_;
}

}  // namespace tamrix::model
