#include "reader/list/pair_probes.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>

#include "pipeline/ring/thread_usage.h"
#include "pipeline/stage/thread.h"

namespace tamrix {

namespace {

// A pair that took longer than this on average may have been waited for. On a fast file system it takes about
// a tenth.
constexpr std::chrono::microseconds kSlowPair(100);

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

PairProbes::PairProbes(const FileLister& lister, const StopFlag& stop, When when, Ends ends,
                       std::size_t mostHelpers)
    : lister_(lister),
      stop_(stop),
      ahead_(when == When::kAhead),
      ends_(ends),
      pairsInBatch_(ahead_ ? kPairs : 1),
      // For a single batch the caller is enough.
      mostHelpers_(ahead_ && lister.size() > kPairs ? mostHelpers : 0),
      helpers_("prober", stop, [this] { help(); }) {}

PairProbes::~PairProbes() {
  {
    const MutexLock lock(mutex_);
    ended_ = true;
  }
  changed_.notifyAll();
  helpers_.join();
}

const PairProbe* PairProbes::at(std::size_t number) {
  const std::size_t batch = number / pairsInBatch_;
  const std::size_t place = number % pairsInBatch_;
  if (place == 0) {
    if (!ahead_) resolvers_ = {};
    startHelpers();
    offerFrom(batch);
    const Outcome outcome = awaitOutcome(batch);
    if (outcome == Outcome::kNoMemory) throw std::bad_alloc();
    if (outcome == Outcome::kStopped) return nullptr;
  }
  return &batches_[batch % kPlaces]->pairs[place];
}

void PairProbes::startHelpers() {
  std::size_t wanted = 0;
  {
    const MutexLock lock(mutex_);
    wanted = helpersWanted_;
  }
  while (helpers_.size() < std::min(wanted, mostHelpers_)) {
    // When there can be no more, those that there are, and the caller, do it all.
    if (!helpers_.add()) mostHelpers_ = helpers_.size();
  }
}

void PairProbes::offerFrom(std::size_t first) {
  const std::size_t end = first + (ahead_ ? 2 * (helpers_.size() + 1) : 1);
  for (std::size_t number = nextToFill_; number < end; ++number) {
    const std::size_t firstPair = number * pairsInBatch_;
    if (firstPair >= lister_.size()) return;
    std::unique_ptr<Batch>& batch = batches_[number % kPlaces];
    if (batch == nullptr) batch = std::make_unique<Batch>();
    batch->count = std::min(pairsInBatch_, lister_.size() - firstPair);
    for (std::size_t i = 0; i < batch->count; ++i) batch->pairs[i].paths = lister_.pair(firstPair + i);
    nextToFill_ = number + 1;
    {
      const MutexLock lock(mutex_);
      outcomes_[number % kPlaces] = Outcome::kPending;
      offered_ = nextToFill_;
    }
    changed_.notifyAll();
  }
}

PairProbes::Outcome PairProbes::awaitOutcome(std::size_t batch) {
  for (;;) {
    {
      const MutexLock lock(mutex_);
      // A helper is at work on the batch that is wanted, and there is no other to probe meanwhile.
      while (claimed_ == offered_ && outcomes_[batch % kPlaces] == Outcome::kPending) {
        changed_.waitUntil(mutex_, std::chrono::steady_clock::now() + Thread::kInterruptRound);
        if (stop_.isSet()) helpers_.interrupt();
      }
      if (outcomes_[batch % kPlaces] != Outcome::kPending) return outcomes_[batch % kPlaces];
    }
    probeNext(resolvers_);
  }
}

void PairProbes::help() {
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
  bool isSlow = false;
  {
    const MutexLock lock(mutex_);
    if (claimed_ == offered_) return;
    place = claimed_++ % kPlaces;
    isSlow = isSlow_ && ahead_ && helpersWanted_ < kMostHelpers;
  }
  Batch& batch = *batches_[place];
  // Asking for the usage takes some calls of its own.
  std::optional<ThreadUsage> before;
  if (isSlow) before = ThreadUsage::now();
  const auto begun = std::chrono::steady_clock::now();
  const Outcome outcome = probe(batch, resolvers);
  isSlow = std::chrono::steady_clock::now() - begun > kSlowPair * batch.count;
  std::size_t more = 0;
  if (isSlow && before && (ThreadUsage::now() - *before).isMostlyAsleep()) more = 1;
  {
    const MutexLock lock(mutex_);
    outcomes_[place] = outcome;
    isSlow_ = isSlow;
    helpersWanted_ = std::min(helpersWanted_ + more, kMostHelpers);
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
