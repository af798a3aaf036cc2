// How far a run has come: what its parts count, for whoever watches it.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "pipeline/ring/buffer_q.h"

namespace tamrix {

// A number that one thread at a time changes and any thread may read. To the thread that counts it is an
// ordinary addition.
class Count {
 public:
  void add(std::int64_t n) { set(get() + n); }
  void set(std::int64_t n) { value_.store(n, std::memory_order_relaxed); }
  std::int64_t get() const { return value_.load(std::memory_order_relaxed); }

 private:
  std::atomic<std::int64_t> value_{0};
};

// What a stage is doing: its own work, waiting for a buffer, or nothing any more.
enum class StageState : std::uint8_t { kWorking, kAsking, kDone };

// What one stage has done. Written by the stage's thread, for each buffer: a cache line of its own.
struct alignas(64) StageCounters {
  Count bytes;                              // passed on, holes included
  Count buffers;                            // passed on
  Count files;                              // whose last buffer was passed on
  std::atomic<const FileC*> file{nullptr};  // being worked on; records live until the process ends
  std::atomic<StageState> state{StageState::kWorking};
};

// Made with the globals of a run. Threads: each member has one that writes it; any thread may read, what has
// no atomic in it only from the phase on that it belongs to.
struct RunCounters {
  enum class Phase : std::uint8_t { kStarting, kListing, kSorting, kCopying, kEnding };
  std::atomic<Phase> phase{Phase::kStarting};  // the main thread's

  // kListing, the main thread's.
  Count filesFound;   // by the walk of a directory, or read from a batch file
  Count filesListed;  // of them, on the copy list
  Count bytesListed;

  // Set before kCopying.
  std::int64_t files = 0;
  std::int64_t bytes = 0;
  std::int64_t buffers = 0;   // that the ring has
  std::size_t lastStage = 0;  // its place in `stages`
  bool writes = true;         // whether the last stage writes the files, or only looks at them
  std::array<StageCounters, BufferQ::kMaxModules> stages;  // by module id
};

}  // namespace tamrix
