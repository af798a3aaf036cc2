// What a person is shown of a run: a pure function from figures to a line.
//
// The line is not in the message catalogue: it is put together from parts that come and go with the width of
// the terminal, is no message of a log, and is English only, as the catalogue is.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "log/screen_text.h"
#include "pipeline/stage/run_counters.h"

namespace tamrix {

// A run at a moment.
struct ProgressSnapshot {
  RunCounters::Phase phase = RunCounters::Phase::kStarting;

  // kListing and kSorting.
  std::int64_t filesFound = 0;
  std::int64_t filesListed = 0;
  std::int64_t bytesListed = 0;

  // kCopying.
  std::int64_t bytes = 0;
  std::int64_t totalBytes = 0;
  std::int64_t files = 0;
  std::int64_t totalFiles = 0;
  int ringPercent = 0;         // of the ring's buffers that are filled or being worked on
  double rate = -1;            // bytes per second; negative: not known
  double secondsLeft = -1;     // negative: not known
  std::string_view waitedFor;  // who keeps the run waiting; empty: nobody
  double secondsWaited = 0;    // since when
  std::string_view file;       // its name, any bytes
};

// One line, at most `columns` columns wide, without its end. What doesn't fit is left out part by part, the
// most telling ones last, and the file's name is cut.
std::string progressText(const ProgressSnapshot& snapshot, int columns, Charset charset);

// "1.23 GB": three digits, decimal units as those of tapes and drives. `bytes` is not negative.
std::string bytesText(double bytes);
// "<1 s", "99 s", "1:40" (minutes), "26:00:00" (hours).
std::string durationText(double seconds);

}  // namespace tamrix
