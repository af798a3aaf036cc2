#include "model/stream.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace tamrix::model {

namespace {

using Seconds = std::chrono::duration<double>;
using Clock = std::chrono::steady_clock;

// What a side that was not asked may make up for: a sleep that was too long.
constexpr double kLateSeconds = 0.01;

}  // namespace

double StallingSide::move(double now, std::int64_t count) {
  if (begun < 0) begun = now;
  busyUntil = std::max(busyUntil, now - kLateSeconds) + static_cast<double>(count) / rate;
  const double inPeriod = std::fmod(busyUntil - begun, period);
  if (inPeriod > period - stall) busyUntil += period - inPeriod;
  return busyUntil;
}

Stream::Stream(const std::string& figures) {
  std::istringstream in(figures);
  std::array<double, 5> number{};
  std::size_t count = 0;
  for (std::string word; count < number.size() && std::getline(in, word, ':'); ++count) {
    number[count] = std::stod(word);
  }
  if (count == 4) {
    figures_ = DriveBuffer::Figures{number[0], number[1], number[2], number[3]};
  } else if (count == 3) {
    side_ = {.rate = number[0], .stall = number[1], .period = number[2]};
  } else {
    throw std::invalid_argument(figures);
  }
}

void Stream::move(DriveBuffer::Direction direction, std::int64_t count) {
  const double now = Seconds(Clock::now().time_since_epoch()).count();
  if (bytes_ == 0) {
    begun_ = now;
    if (figures_) drive_.emplace(*figures_, direction, now);
  }
  bytes_ += count;
  ended_ = drive_ ? drive_->move(now, count) : side_.move(now, count);
  if (ended_ > now) std::this_thread::sleep_for(Seconds(ended_ - now));
}

std::string Stream::finish() {
  if (drive_) ended_ = drive_->finish(ended_);
  std::ostringstream out;
  out << "total " << (drive_ ? drive_->stops() : 0) << ' ' << bytes_ << ' ' << ended_ - begun_ << '\n';
  return out.str();
}

}  // namespace tamrix::model
