// What the system tells of the pairs of a listing, gathered by a second thread ahead of the one that lists.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include "pipeline/thread.h"
#include "reader/file_lister.h"
#include "reader/path_identity.h"
#include "reader/source_attributes.h"

namespace tamrix {

// One pair, and what the system told of it.
struct PairProbe {
  std::string source;
  std::string destination;
  PathIdentity sourceId;
  PathIdentity destinationId;
  struct stat sourceStatus {};  // when the source exists
  int destinationError = 0;     // stat's error number, when the destination does not exist
  SourceAttributes attributes;  // when the source is a regular file
};

// Purpose: most of a listing's time is the system's, in calls that have nothing to do with each other. A few
// hundred pairs are probed ahead of the one that is taken, by a helper thread, and by the caller instead of
// waiting. Nothing is logged; the listing is as it would be without.
// How: each place of a ring holds a pair whose state goes from kToProbe by kClaimed to kReady; whoever gets
// it to kClaimed probes it. Only the caller fills places and takes from them. Threads: next on the thread
// that lists. Lifetime: one lister's sequence; the lister outlives it.
class PairProbes : private Thread {
 public:
  explicit PairProbes(const FileLister& lister);
  ~PairProbes() override;

  // The probe of the lister's current pair; valid until the next call. Throws std::bad_alloc.
  // REQUIRES: one call for each pair that the lister makes current, in turn.
  const PairProbe& next();

 private:
  enum State : int { kToProbe, kClaimed, kReady, kNoMemory };
  struct Place {
    PairProbe probe;
    std::atomic<int> state = kReady;
  };
  // What a thread that probes keeps between pairs.
  struct Resolvers {
    PathResolver source;
    PathResolver destination;
  };

  static constexpr std::size_t kPlaces = 256;
  static constexpr std::size_t kWorthAThread = 64;      // pairs
  static constexpr std::size_t kEnd = ~std::size_t{0};  // in filled_: no more pairs come

  void run() override;
  void fill();
  void awaitProbe(std::size_t number);
  // Probes the pair in `place` unless another thread does or did. Returns whether it did.
  static bool tryProbe(Place& place, Resolvers& resolvers);
  Place& placeOf(std::size_t number) { return places_[number % kPlaces]; }

  const FileLister& lister_;
  const std::unique_ptr<Place[]> places_;
  // Of the pairs, by their number in the sequence. Written by the caller only.
  std::atomic<std::size_t> filled_ = 0;  // all before this one have a place, or had one
  std::size_t taken_ = 0;
  bool started_ = false;
  Resolvers resolvers_;  // the caller's
};

}  // namespace tamrix
