#include "reader/list/pair_probes.h"

#include <new>

namespace tamrix {

namespace {

void probePair(PairProbe& pair, PathResolver& sources, PathResolver* destinations) {
  int error = 0;
  pair.sourceId = sources.resolve(pair.source, pair.sourceStatus, error);
  struct stat status {};
  if (destinations != nullptr)
    pair.destinationId = destinations->resolveDestination(pair.destination, status, pair.destinationError);
  if (pair.sourceId.exists(pair.source) && S_ISREG(pair.sourceStatus.st_mode)) {
    pair.attributes.read(pair.source.c_str());
  }
}

}  // namespace

PairProbes::PairProbes(const FileLister& lister, When when, Ends ends)
    : Thread("lister"),
      lister_(lister),
      when_(when),
      ends_(ends),
      places_(std::make_unique<Place[]>(kPlaces)) {}

PairProbes::~PairProbes() {
  filled_.store(kEnd, std::memory_order_release);
  filled_.notify_one();
  join();
}

const PairProbe& PairProbes::next() {
  fill();
  Place& place = placeOf(taken_++);
  while (place.state.load(std::memory_order_acquire) == kPending) {
    if (!probeOne(resolvers_)) place.state.wait(kPending, std::memory_order_acquire);
  }
  if (place.state.load(std::memory_order_relaxed) == kNoMemory) throw std::bad_alloc();
  return place.probe;
}

// Gives places to the pairs from the current one on, once enough are free.
void PairProbes::fill() {
  const std::size_t before = filled_.load(std::memory_order_relaxed);
  if (before - taken_ > kPlaces - kFillAtOnce) return;
  if (when_ == When::kInTurn) resolvers_ = {};
  const std::size_t most = when_ == When::kInTurn ? 1 : kPlaces;
  std::size_t filled = before;
  for (; filled - taken_ < most; ++filled) {
    Place& place = placeOf(filled);
    if (!lister_.peek(filled - taken_, place.probe.source, place.probe.destination)) break;
    place.state.store(kPending, std::memory_order_relaxed);
  }
  if (filled == before) return;
  filled_.store(filled, std::memory_order_release);
  filled_.notify_one();
  if (!triedToStart_ && filled - taken_ >= kWorthAThread) {
    triedToStart_ = true;
    (void)start();  // without a thread the caller probes them all
  }
}

void PairProbes::run() {
  Resolvers resolvers;
  for (;;) {
    const std::size_t filled = filled_.load(std::memory_order_acquire);
    if (filled == kEnd) return;
    if (!probeOne(resolvers)) filled_.wait(filled, std::memory_order_acquire);
  }
}

bool PairProbes::probeOne(Resolvers& resolvers) {
  const std::size_t filled = filled_.load(std::memory_order_acquire);
  std::size_t number = claimed_.load(std::memory_order_relaxed);
  do {
    if (number >= filled || filled == kEnd) return false;
  } while (!claimed_.compare_exchange_weak(number, number + 1, std::memory_order_relaxed));
  Place& place = placeOf(number);
  State result = kReady;
  try {
    probePair(place.probe, resolvers.source, ends_ == Ends::kBoth ? &resolvers.destination : nullptr);
  } catch (const std::bad_alloc&) {
    result = kNoMemory;
  }
  place.state.store(result);  // not to be passed by the look for a waiter
  place.state.notify_one();
  return true;
}

}  // namespace tamrix
