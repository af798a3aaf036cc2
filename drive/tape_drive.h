// A model of a tape drive: how many seconds it takes to reach and to read something.
//
// The tape is serpentine: the drive writes one wrap from the beginning of the tape to its end, the next one
// back, and so on. So neighbouring places on the tape may be a million blocks apart.
//
// Left out: loading the tape and mounting it, which takes minutes; writing; compression, which makes a tape
// hold more and a drive deliver faster; a host that can't keep up, for which the drive slows down or stops
// and runs back; reading again after errors; cleaning; the extra cost of positions near the ends of a wrap.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace tamrix::tape {

// Figures of a generation of LTO full-height drives and their tapes, without compression.
struct Generation {
  std::string_view option;  // how options name it
  const char* name;
  double bytesPerSecond;
  double capacity;  // bytes
  double metres;
  int wraps;
};

// From the public table of LTO generations (rate, capacity, length; data tracks by tracks written at a time
// give the wraps: 1280/16, 2176/16, 3584/32, 6656/32, 8960/32), as data sheets of drives and tapes repeat it.
inline constexpr std::array kGenerations = {
    Generation{"lto5", "LTO-5", 140e6, 1.5e12, 846, 80},
    Generation{"lto6", "LTO-6", 160e6, 2.5e12, 846, 136},
    Generation{"lto7", "LTO-7", 300e6, 6e12, 960, 112},
    Generation{"lto8", "LTO-8", 360e6, 12e12, 960, 208},
    Generation{"lto9", "LTO-9", 400e6, 18e12, 1035, 280},
};

// The generation of that option name (case-sensitive); null when there is none.
const Generation* findGeneration(std::string_view option);

// Data sheets give one time for the average locate from the beginning of the tape, which is for half the
// tape's length, and about the same for the rewind from there: 50 s for LTO-5 and LTO-6, about a minute for
// the others. It is split here into what the distance costs and what any locate costs. The split is ours,
// chosen to meet that sum: 423 m / 9 m/s + 4 s = 51 s, 480 m / 9 m/s + 4 s = 57 s (LTO-7, LTO-8),
// 518 m / 9 m/s + 4 s = 62 s (LTO-9).
inline constexpr double kLocateMetresPerSecond = 9;  // winding; reading moves at 5 to 7 m/s
// Stop, run back beyond the target and start again at reading speed (a back-hitch).
inline constexpr double kRestartSeconds = 3;
// The head moves across the tape and finds its tracks; also what the turn at the end of a wrap costs.
inline constexpr double kWrapChangeSeconds = 1;

// Partition 'a', the index, has the first two wraps; two more lie unused between it and 'b', the data.
inline constexpr int kIndexPartitionWraps = 4;

// One drive with one tape. Places are bytes along all wraps from the beginning of the tape; those behind its
// end count as if there were more wraps. Immutable; `generation` outlives it.
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
  // The average locate between two places that have nothing to do with each other: a third of the length
  // apart.
  double averageLocateSeconds() const;
  // Reading `count` bytes that begin at `from`, turns at the ends of wraps included.
  double streamSeconds(std::int64_t from, std::int64_t count) const;
  // Back to the beginning of the tape, so that it can be taken out.
  double rewindSeconds(std::int64_t from) const;

 private:
  int wrapOf(std::int64_t place) const {
    return static_cast<int>(static_cast<double>(place) / bytesPerWrap_);
  }

  const Generation& generation_;
  const double bytesPerWrap_;
};

}  // namespace tamrix::tape
