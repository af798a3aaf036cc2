#include "reader/list/pair_probes.h"

#include <algorithm>
#include <chrono>
#include <new>

namespace tamrix {

namespace {

void probePair(PairProbe& pair, PathResolver& sources, PathResolver* destinations) {
  pair.paths.source.copyTo(pair.source);
  pair.paths.destination.copyTo(pair.destination);
  int error = 0;
  pair.sourceId = sources.resolve(pair.source, pair.sourceStatus, error);
  if (destinations != nullptr) {
    pair.destinationId =
        destinations->resolveDestination(pair.destination, pair.destinationStatus, pair.destinationError);
  }
  if (pair.sourceId.exists(pair.source) && S_ISREG(pair.sourceStatus.st_mode)) {
    pair.attributes.read(pair.source.c_str());
  }
}

}  // namespace

PairProbes::PairProbes(const FileLister& lister, const StopFlag& stop, When when, Ends ends)
    : Thread("prober"),
      lister_(lister),
      stop_(stop),
      ahead_(when == When::kAhead),
      ends_(ends),
      pairsInBatch_(ahead_ ? kPairs : 1),
      batches_(std::make_unique<std::array<Batch, kBatches>>()) {}

PairProbes::~PairProbes() {
  {
    const MutexLock lock(mutex_);
    ended_ = true;
  }
  changed_.notifyAll();
  while (isRunning()) {
    if (stop_.isSet()) interrupt();
    helperEnded_.waitFor(kInterruptRound);
  }
  join();
}

const PairProbe* PairProbes::at(std::size_t number) {
  const std::size_t batch = number / pairsInBatch_;
  const std::size_t place = number % pairsInBatch_;
  if (place == 0) {
    if (!ahead_) resolvers_ = {};
    offerFrom(batch);
    // Without a thread the caller probes them all.
    if (number == 0 && ahead_ && lister_.size() > kPairs) (void)start(&helperEnded_);
    const Outcome outcome = awaitOutcome(batch);
    if (outcome == Outcome::kNoMemory) throw std::bad_alloc();
    if (outcome == Outcome::kStopped) return nullptr;
  }
  return &(*batches_)[batch % kBatches].pairs[place];
}

void PairProbes::offerFrom(std::size_t first) {
  const std::size_t end = first + (ahead_ ? kBatches : 1);
  for (std::size_t number = nextToFill_; number < end; ++number) {
    const std::size_t firstPair = number * pairsInBatch_;
    if (firstPair >= lister_.size()) return;
    Batch& batch = (*batches_)[number % kBatches];
    batch.count = std::min(pairsInBatch_, lister_.size() - firstPair);
    for (std::size_t i = 0; i < batch.count; ++i) {
      batch.pairs[i].paths = lister_.pair(firstPair + i);
    }
    nextToFill_ = number + 1;
    {
      const MutexLock lock(mutex_);
      outcomes_[number % kBatches] = Outcome::kPending;
      offered_ = nextToFill_;
    }
    changed_.notifyAll();
  }
}

PairProbes::Outcome PairProbes::awaitOutcome(std::size_t batch) {
  for (;;) {
    {
      const MutexLock lock(mutex_);
      // The helper is at work on the batch that is wanted, and there is no other to probe meanwhile.
      while (claimed_ == offered_ && outcomes_[batch % kBatches] == Outcome::kPending) {
        changed_.waitUntil(mutex_, std::chrono::steady_clock::now() + kInterruptRound);
        if (stop_.isSet()) interrupt();
      }
      if (outcomes_[batch % kBatches] != Outcome::kPending) return outcomes_[batch % kBatches];
    }
    probeNext(resolvers_);
  }
}

void PairProbes::run() {
  const MayWait mayWait(*this);
  Resolvers resolvers;
  for (;;) {
    {
      const MutexLock lock(mutex_);
      while (claimed_ == offered_ && !ended_) changed_.wait(mutex_);
      if (ended_) return;
    }
    probeNext(resolvers);
  }
}

void PairProbes::probeNext(Resolvers& resolvers) {
  std::size_t place = 0;
  {
    const MutexLock lock(mutex_);
    if (claimed_ == offered_) return;
    place = claimed_++ % kBatches;
  }
  const Outcome outcome = probe((*batches_)[place], resolvers);
  {
    const MutexLock lock(mutex_);
    outcomes_[place] = outcome;
  }
  changed_.notifyAll();
}

PairProbes::Outcome PairProbes::probe(Batch& batch, Resolvers& resolvers) const {
  try {
    for (std::size_t i = 0; i < batch.count; ++i) {
      if (stop_.isSet()) return Outcome::kStopped;
      probePair(batch.pairs[i], resolvers.source, ends_ == Ends::kBoth ? &resolvers.destination : nullptr);
    }
  } catch (const std::bad_alloc&) {
    return Outcome::kNoMemory;
  }
  // A stop may have interrupted a call, so its result says nothing about the file.
  return stop_.isSet() ? Outcome::kStopped : Outcome::kProbed;
}

}  // namespace tamrix
