#include "reader/pair_probes.h"

#include <algorithm>
#include <cerrno>
#include <new>

namespace tamrix {

namespace {

void probePair(PairProbe& pair, PathResolver& sources, PathResolver& destinations) {
  pair.sourceId = sources.resolve(pair.source, pair.sourceStatus);
  struct stat status {};
  pair.destinationId = destinations.resolve(pair.destination, status);
  pair.destinationError = errno;
  if (pair.sourceId.exists(pair.source) && S_ISREG(pair.sourceStatus.st_mode)) {
    pair.attributes.read(pair.source.c_str());
  }
}

}  // namespace

PairProbes::PairProbes(const FileLister& lister)
    : Thread("lister"), lister_(lister), places_(std::make_unique<Place[]>(kPlaces)) {}

PairProbes::~PairProbes() {
  filled_.store(kEnd, std::memory_order_release);
  filled_.notify_one();
  join();
}

const PairProbe& PairProbes::next() {
  fill();
  const std::size_t number = taken_++;
  awaitProbe(number);
  Place& place = placeOf(number);
  if (place.state.load(std::memory_order_relaxed) == kNoMemory) throw std::bad_alloc();
  return place.probe;
}

// Gives places to the current pair and those that follow it, once half of them are free.
void PairProbes::fill() {
  const std::size_t before = filled_.load(std::memory_order_relaxed);
  if (before - taken_ > kPlaces / 2) return;
  std::size_t filled = before;
  for (; filled - taken_ < kPlaces; ++filled) {
    PairProbe& pair = placeOf(filled).probe;
    if (!lister_.peek(filled - taken_, pair.source, pair.destination)) break;
    placeOf(filled).state.store(kToProbe, std::memory_order_release);
  }
  if (filled == before) return;
  filled_.store(filled, std::memory_order_release);
  filled_.notify_one();
  if (!started_ && filled - taken_ >= kWorthAThread) {
    started_ = true;
    (void)start();  // without a thread the caller probes them all
  }
}

void PairProbes::awaitProbe(std::size_t number) {
  Place& wanted = placeOf(number);
  if (tryProbe(wanted, resolvers_)) return;
  const std::size_t filled = filled_.load(std::memory_order_relaxed);
  for (std::size_t ahead = number + 1; wanted.state.load(std::memory_order_acquire) == kClaimed; ++ahead) {
    if (ahead < filled) {
      tryProbe(placeOf(ahead), resolvers_);
    } else {
      wanted.state.wait(kClaimed, std::memory_order_acquire);
    }
  }
}

// The helper may look at a place that has its next pair by now; that one is as good.
void PairProbes::run() {
  Resolvers resolvers;
  for (std::size_t number = 0;;) {
    const std::size_t filled = filled_.load(std::memory_order_acquire);
    if (filled == kEnd) return;
    if (number == filled) {
      filled_.wait(filled, std::memory_order_acquire);
      continue;
    }
    number = std::max(number, filled - std::min(filled, kPlaces));
    tryProbe(placeOf(number++), resolvers);
  }
}

bool PairProbes::tryProbe(Place& place, Resolvers& resolvers) {
  int expected = kToProbe;
  if (!place.state.compare_exchange_strong(expected, kClaimed, std::memory_order_acquire)) return false;
  int result = kReady;
  try {
    probePair(place.probe, resolvers.source, resolvers.destination);
  } catch (const std::bad_alloc&) {
    result = kNoMemory;
  }
  place.state.store(result, std::memory_order_release);
  place.state.notify_one();
  return true;
}

}  // namespace tamrix
