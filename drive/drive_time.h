// What a drive takes for one read after another.
#pragma once

#include <cstdint>
#include <optional>

#include "drive/tape_drive.h"

namespace tamrix::tape {

// Purpose: follows the position of one tape in one drive and adds up the time; the beginning of the data is
// where it starts. Positions and counts beyond any tape are cut to ones that can be computed with.
// Threads: one. Lifetime: any; the generation outlives it.
class DriveTime {
 public:
  // `blockSize` in bytes, above 0.
  DriveTime(const Generation& generation, std::int64_t blockSize)
      : drive_(generation), blockSize_(blockSize) {}

  // Whether the drive is at byte `offset` of the file that begins at `block`.
  bool isAt(char partition, std::int64_t block, std::int64_t offset) const;
  // Goes there. Returns the seconds of the locate; nothing where the drive is there or comes there by reading
  // on: a file's last block may be shorter than the others, and the next file follows it all the same.
  std::optional<double> locate(char partition, std::int64_t block, std::int64_t offset);
  // Reads `count` bytes from where the drive is. Returns the seconds.
  double read(std::int64_t count);

  double seconds() const { return locateSeconds_ + readSeconds_; }  // all so far
  double readSeconds() const { return readSeconds_; }               // of them, without locates
  std::int64_t locates() const { return locates_; }
  const Drive& drive() const { return drive_; }
  double rewindSeconds() const { return drive_.rewindSeconds(place()); }

 private:
  std::int64_t bytesTo(std::int64_t block, std::int64_t offset) const;
  std::int64_t place() const { return drive_.place(partition_, offset_); }

  Drive drive_;
  std::int64_t blockSize_;

  char partition_ = 'b';     // where the drive is
  std::int64_t offset_ = 0;  // bytes from the partition's beginning

  double locateSeconds_ = 0;
  double readSeconds_ = 0;
  std::int64_t locates_ = 0;
};

}  // namespace tamrix::tape
