// Orders in which files on tape can be read, and what they cost.
#pragma once

#include <cstdint>
#include <vector>

#include "drive/tape_drive.h"

namespace tamrix::tape {

// A file on tape, from byte to byte; see Drive.
struct Stretch {
  std::int64_t begin = 0;
  std::int64_t end = 0;
};

// Indices into the files of a request.
using Order = std::vector<int>;

// What reading `files` in an order costs, in seconds, from the beginning of the tape on.
double secondsOf(const Drive& drive, const std::vector<Stretch>& files, const Order& order);
// As far as it is the same for every order: reading without any locate.
double readingSeconds(const Drive& drive, const std::vector<Stretch>& files);

// An order that is about as good as can be found: the best of each of `known`, of always going to the nearest
// file next, and of sweeping the wraps that lead away from the beginning of the tape, then those that lead
// back; then improved by moving runs of up to three files to where they cost less, until no such move helps.
// An estimate: the best order of all may be better.
Order estimatedBest(const Drive& drive, const std::vector<Stretch>& files, const Order& known);

}  // namespace tamrix::tape
