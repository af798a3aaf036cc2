// What a drive had to do, and how long it would have taken it.
#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <string>

#include "drive/drive_time.h"

namespace tamrix::model {

// One tape in one drive, at the beginning of the data. One thread.
class Account {
 public:
  struct Position {
    char partition = 0;
    std::int64_t block = 0;
    auto operator<=>(const Position&) const = default;
  };

  // `blockSize` in bytes. Whatever the drive does also takes `delay` times the modelled time; 0: none.
  Account(const tape::Generation& generation, std::int64_t blockSize, double delay)
      : time_(generation, blockSize), delay_(delay) {}

  // Moves the drive to `offset` in the file that begins at `position`.
  void locate(const std::string& path, const Position& position, std::int64_t offset);
  // Reads `count` bytes from there. REQUIRES: locate
  void read(std::int64_t count);

  // The account, a line each: "locate SECONDS PATH" and "read BYTES SECONDS PATH" for what was read in one
  // go, then "total LOCATES BYTES SECONDS".
  std::string finish();

 private:
  void endRead();
  void spend(double seconds);

  tape::DriveTime time_;
  const double delay_;
  std::chrono::steady_clock::time_point busyUntil_;  // with a delay: the drive has something to do

  std::string path_;        // of the file read last
  std::int64_t count_ = 0;  // read in one go up to here
  double readSeconds_ = 0;  // what that took

  std::string lines_;
  std::int64_t bytes_ = 0;
};

}  // namespace tamrix::model
