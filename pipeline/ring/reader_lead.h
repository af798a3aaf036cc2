// How far the reader may be ahead of the last stage, and who is woken when.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "pipeline/ring/thread_usage.h"

namespace tamrix {

// Purpose: the one place that decides how much of the ring the reader may fill, when it goes on after it had
// to wait, and for how many buffers a stage that waits is woken.
//
// While reading is a copy within memory, being far ahead gains nothing and costs a pass through memory that
// no cache holds: the lead is short. While the reader has to wait for its source, being ahead is what keeps a
// tape streaming: the lead is the whole ring. Speed doesn't tell the two apart, as other processes take
// processor and memory from both. Sleeping does: a copy within memory never sleeps, and a reader spends most
// of its time asleep when its source is a tape, a disk or a network.
//
// So the time that the reader takes to fill buffers is measured, some milliseconds at a time. A sample that
// it mostly slept through makes the limit four times as long, up to the whole ring; eight samples in a row
// in which it hardly slept make it as much shorter again. A sample that misleads costs a few MiB.
//
// Pure: times are handed in. Threads: one at a time, see BufferQ.
class ReaderLead {
 public:
  static constexpr std::int64_t kShort = 3 << 19;  // bytes: what a core's own cache holds
  static constexpr std::int64_t kBuffersAtLeast = 4;
  static constexpr std::int64_t kWakeShare = 4;         // see readerShouldWake
  static constexpr std::int64_t kStageBytes = 1 << 20;  // see stageShouldWake, readerShouldWake
  static constexpr std::int64_t kStageBuffers = 8;
  static constexpr std::int64_t kStep = 4;  // by which the limit grows and shrinks
  static constexpr int kAwakeSamples = 8;   // before it shrinks
  static constexpr std::chrono::milliseconds kSampleTime{10};

  ReaderLead() = default;
  // Of a ring of `bufferCount` buffers of `bufferSize` bytes.
  ReaderLead(std::int64_t bufferSize, std::int64_t bufferCount);

  // What the reader, and the last stage, have passed on: bytes in buffers, so that a hole has none.
  void filled(std::int64_t bytes) { bytes_ += bytes; }
  void emptied(std::int64_t bytes) { bytes_ -= bytes; }

  // Whether the reader may go on.
  bool hasRoom() const { return bytes_ < limit_; }
  // Whether a reader that waits is to be woken, with `freeBuffers` its own again. While the source is fast:
  // when a quarter of the lead is left and a quarter of the ring is free, so that it has work for a while.
  // While the source is waited for: for 8 buffers or 1 MiB. The longer it is kept back, the more a drive has
  // to hold that reads on meanwhile, and the less the ring holds when a source stalls.
  bool readerShouldWake(std::int64_t freeBuffers) const;
  // Whether a stage that waits is to be woken for `buffers`. While the source is fast, waking it on another
  // core for every buffer would cost more than it does with the buffer, so it is woken for 8 buffers or 1
  // MiB. While the source is waited for, nothing that was read lies about: it is woken for the first.
  bool stageShouldWake(std::int64_t buffers) const { return limit_ > short_ || buffers >= stageBuffers_; }

  // Measuring. When a sample is due before the reader goes on or waits, it is to be taken; that may give room
  // or take it. `now` is the reader's, and the steady clock's.
  bool sampleIsDue(std::chrono::nanoseconds now) const;
  void takeSample(const ThreadUsage& now);
  // The reader waited in the ring, which says nothing about its source. Nothing, if `time` is 0.
  void leaveOut(std::chrono::nanoseconds time) {
    leftOut_ += time;
    leftOutSleeps_ += time.count() > 0 ? 1 : 0;
  }

  std::int64_t limit() const { return limit_; }  // bytes

 private:
  std::int64_t bufferCount_ = 0;
  std::int64_t whole_ = 0;  // bytes of the ring
  std::int64_t short_ = 0;  // bytes
  std::int64_t stageBuffers_ = 1;
  std::int64_t limit_ = 0;  // bytes, between these two
  std::int64_t bytes_ = 0;  // that the reader is ahead

  std::optional<ThreadUsage> since_;    // at the begin of the sample
  std::chrono::nanoseconds leftOut_{};  // of the time since then
  std::int64_t leftOutSleeps_ = 0;
  int awakeSamples_ = 0;                // in a row
};

}  // namespace tamrix
