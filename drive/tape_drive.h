// How long a tape drive takes to reach and to read what is asked of it: a model, in seconds.
//
// The tape is serpentine: the drive writes one wrap from the beginning of the tape to its end, the next one
// back, and so on. What lies a block number apart may therefore lie side by side, and what lies side by side
// may be a million blocks apart.
#pragma once

#include <cstdint>

namespace tamrix::tape {

// Figures of a generation of LTO full-height drives and their tapes, from the public data sheets of the
// generation: native (uncompressed) rate and capacity, length of the tape, number of wraps.
struct Generation {
  const char* name;
  double bytesPerSecond;
  double capacity;  // bytes
  double metres;
  int wraps;
};
inline constexpr Generation kLto8{"LTO-8", 360e6, 12e12, 960, 208};
inline constexpr Generation kLto9{"LTO-9", 400e6, 18e12, 1035, 280};

// The data sheets give one time for the average locate from the beginning of the tape, about a minute, that
// is for half the tape's length. It is split here into what the distance costs and what any locate costs. The
// split is ours, chosen to meet that sum: 480 m / 9 m/s + 4 s = 57 s (LTO-8), 518 m / 9 m/s + 4 s = 62 s
// (LTO-9).
inline constexpr double kLocateMetresPerSecond = 9;  // winding; reading moves at about 6 m/s
// Stop, run back beyond the target and start again at reading speed (a back-hitch).
inline constexpr double kRestartSeconds = 3;
// The head moves across the tape and finds its tracks; also what the turn at the end of a wrap costs.
inline constexpr double kWrapChangeSeconds = 1;

// Partition 'a', the index, has the first two wraps; two more lie unused between it and 'b', the data.
inline constexpr int kIndexPartitionWraps = 4;

// One drive with one tape. Places are bytes along all wraps from the beginning of the tape. Immutable.
class Drive {
 public:
  explicit Drive(const Generation& generation);

  double bytesPerWrap() const { return bytesPerWrap_; }
  // The place `offset` bytes behind the beginning of a partition, 'a' or 'b'; of any other: of the tape.
  std::int64_t place(char partition, std::int64_t offset) const;
  double metresFromBeginning(std::int64_t place) const;
  // Whether reading at a place moves towards the beginning of the tape.
  bool leadsBack(std::int64_t place) const { return wrapOf(place) % 2 != 0; }

  // From having read up to `from` until reading begins at `to`. Reads on over a gap where that is faster.
  double locateSeconds(std::int64_t from, std::int64_t to) const;
  // Reading `count` bytes that begin at `from`, turns at the ends of wraps included.
  double streamSeconds(std::int64_t from, std::int64_t count) const;

 private:
  int wrapOf(std::int64_t place) const {
    return static_cast<int>(static_cast<double>(place) / bytesPerWrap_);
  }

  const Generation& generation_;
  const double bytesPerWrap_;
};

}  // namespace tamrix::tape
