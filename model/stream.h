// What a stream of content through a modelled volume waits for, and an account of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/drive_buffer.h"

namespace tamrix::model {

// A disk or a network, as the other side of a copy: its rate, and how long it gives and takes nothing at the
// end of every period. Starts with the first move. Pure: times are handed in, in seconds. One thread.
struct StallingSide {
  double rate = 0;    // bytes/s
  double stall = 0;   // seconds
  double period = 1;  // seconds
  double begun = -1;
  double busyUntil = 0;

  // Returns when `count` bytes have been moved.
  double move(double now, std::int64_t count);
};

// Waits in real time for what the figures say. One thread.
class Stream {
 public:
  // Four numbers of a drive, RATE:LOWEST-RATE:BUFFER:RESTART-SECONDS, or three of another side,
  // RATE:STALL:PERIOD, in bytes and seconds. Throws std::invalid_argument.
  explicit Stream(const std::string& figures);

  void move(DriveBuffer::Direction direction, std::int64_t count);

  // "total STOPS BYTES SECONDS": from the first move until the tape has all.
  std::string finish();

 private:
  std::optional<DriveBuffer::Figures> figures_;
  std::optional<DriveBuffer> drive_;
  StallingSide side_;
  std::int64_t bytes_ = 0;
  double begun_ = 0;  // of the steady clock, seconds
  double ended_ = 0;
};

}  // namespace tamrix::model
