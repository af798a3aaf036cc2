#include "pipeline/ring/reader_lead.h"

#include <algorithm>
#include <utility>

namespace tamrix {

namespace {

// What the time asleep is multiplied by and compared with the sample's: more than half of it is waiting for
// the source, less than an eighth isn't. In between, nothing changes.
constexpr int kWaiting = 2;
constexpr int kAwake = 8;

}  // namespace

ReaderLead::ReaderLead(std::int64_t bufferSize, std::int64_t bufferCount)
    : bufferCount_(bufferCount),
      whole_(bufferSize * bufferCount),
      short_(std::min(whole_, std::max(kShort, kBuffersAtLeast * bufferSize))),
      stageBuffers_(std::clamp<std::int64_t>(kStageBytes / bufferSize, 1, kStageBuffers)),
      limit_(short_) {}

bool ReaderLead::readerShouldWake(std::int64_t freeBuffers) const {
  if (limit_ > short_) {
    return freeBuffers >= stageBuffers_ && (limit_ == whole_ || bytes_ <= limit_ - kStageBytes);
  }
  return freeBuffers >= std::max<std::int64_t>(1, bufferCount_ / kWakeShare) &&
         (limit_ == whole_ || bytes_ <= limit_ / kWakeShare);
}

bool ReaderLead::sampleIsDue(std::chrono::nanoseconds now) const {
  return !since_ || now - since_->clock - leftOut_ >= kSampleTime;
}

void ReaderLead::takeSample(const ThreadUsage& now) {
  const std::optional<ThreadUsage> since = std::exchange(since_, now);
  const std::chrono::nanoseconds leftOut = std::exchange(leftOut_, {});
  const std::int64_t leftOutSleeps = std::exchange(leftOutSleeps_, 0);
  if (!since) return;
  ThreadUsage sample = now - *since;
  sample.sleeps -= leftOutSleeps;
  // Waiting in the ring may have been queueing in part, and then counts twice: on the side of a short lead.
  const std::chrono::nanoseconds asleep = sample.asleep() - leftOut;
  const std::chrono::nanoseconds time = sample.clock - leftOut;
  if (asleep * kWaiting > time) {
    awakeSamples_ = 0;
    limit_ = std::min(whole_, limit_ * kStep);
  } else if (asleep * kAwake > time) {
    awakeSamples_ = 0;
  } else if (++awakeSamples_ == kAwakeSamples) {
    awakeSamples_ = 0;
    limit_ = std::max(short_, limit_ / kStep);
  }
}

}  // namespace tamrix
