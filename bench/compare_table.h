// What bench/compare prints: figures, how far they can be trusted, and whether targets were reached.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/compare_work.h"

namespace tamrix::bench {

enum class Place { kMemory, kDisk, kVolume };

// One program's way to copy `from` to `to`, as a shell command; $from and $to are set.
struct Peer {
  std::string name;
  std::string command;
  bool copiesAttributes = true;
};

// What was measured of it, in the order of the rounds.
struct Column {
  Peer peer;
  std::vector<double> wall;  // seconds
  std::vector<double> cpu;   // seconds
  std::vector<double> peak;  // bytes
  std::int64_t blocks = 0;   // of 512 bytes, in the copy
};

// All that was measured of a work at a place.
struct Measured {
  const Work& work;
  Place place;
  bool attributes;
  std::vector<Column> columns;  // tamrix first
  std::vector<double> limits;   // seconds
  std::vector<double> writers;  // seconds
};

const char* nameOf(Place place);

void print(const Measured& measured);

}  // namespace tamrix::bench
