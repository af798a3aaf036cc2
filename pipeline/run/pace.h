// How fast a run moves and when it will end, from what was seen so far.
#pragma once

#include <cstdint>

namespace tamrix {

// Purpose: takes samples of a run's progress and tells rate, time left and standstill. Time is an argument,
// in seconds from any fixed point; nothing here looks at a clock. Copyable. One thread.
class Pace {
 public:
  static constexpr double kUnknown = -1;

  // Takes a sample: at `now`, `bytes` are done, and `steps` of any kind (a change tells that something
  // moves). REQUIRES: none of the three falls.
  void add(double now, std::int64_t bytes, std::int64_t steps);

  // The time since the last sample was no time of the run: it was suspended.
  void skipTo(double now);

  // Bytes per second, smoothed over some seconds; kUnknown until bytes have moved for a moment.
  double rate() const;

  // Seconds until `remaining` more bytes are done; kUnknown like the rate, and while nothing moves at all.
  // Taken from the mean rate since the first byte, in which what is long past counts less and less: what a
  // drive needs to reach the first file says nothing of the rest, and what it needs to reach the others is
  // part of the rate.
  double secondsLeft(std::int64_t remaining) const;

  // Seconds since the steps changed.
  double standstill() const { return now_ - lastMove_; }

 private:
  // Bytes over time, both fading with a time constant.
  struct Mean {
    double bytes = 0;
    double seconds = 0;
    void add(double moreBytes, double moreSeconds, double constant);
    double rate() const { return bytes / seconds; }
  };

  bool begun_ = false;  // with the first sample
  double now_ = 0;      // of the last sample
  std::int64_t bytes_ = 0;
  std::int64_t steps_ = 0;
  double lastMove_ = 0;
  double moving_ = 0;  // seconds since the first byte, until now_
  Mean recent_;
  Mean longTerm_;
};

}  // namespace tamrix
