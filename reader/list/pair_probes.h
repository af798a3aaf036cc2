// What the system tells of the pairs of a listing, gathered by a second thread ahead of the one that lists.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include "pipeline/stage/thread.h"
#include "reader/list/file_lister.h"
#include "reader/list/path_identity.h"
#include "reader/list/source_attributes.h"

namespace tamrix {

// One pair, and what the system told of it.
struct PairProbe {
  std::string source;
  std::string destination;
  PathIdentity sourceId;
  PathIdentity destinationId;   // when both ends are examined, like the next but one
  struct stat sourceStatus {};  // when the source exists
  int destinationError = 0;     // stat's error number, when the destination does not exist
  SourceAttributes attributes;  // when the source is a regular file
};

// Purpose: most of a listing's time is the system's, in calls that have nothing to do with each other. A few
// hundred pairs are probed ahead of the one that is taken, by a helper thread, and by the caller instead of
// waiting. Nothing is logged; the listing is as it would be without. Where a person may take time between
// pairs, and change what the next ones mean, each is probed when its turn comes.
// How: pairs are numbered, and each has a place in a ring from when it is filled in to when it is taken.
// Whoever counts claimed_ up past a number probes that pair. Only the caller fills places and takes from
// them.
//
// Threads: next on the thread that lists. Lifetime: one lister's sequence; the lister outlives it.
class PairProbes : private Thread {
 public:
  enum class When { kAhead, kInTurn };

  // Which files of a pair are examined.
  enum class Ends { kBoth, kSource };

  PairProbes(const FileLister& lister, When when, Ends ends);
  ~PairProbes() override;

  // The probe of the lister's current pair; valid until the next call. Throws std::bad_alloc.
  // REQUIRES: one call for each pair that the lister makes current, in turn.
  const PairProbe& next();

 private:
  enum State : int { kPending, kReady, kNoMemory };
  struct Place {
    PairProbe probe;
    std::atomic<int> state = kPending;
  };
  // What a thread that probes keeps between pairs.
  struct Resolvers {
    PathResolver source;
    PathResolver destination;
  };

  static constexpr std::size_t kPlaces = 256;
  static constexpr std::size_t kFillAtOnce = 32;        // places, so that the helper is not woken for each
  static constexpr std::size_t kWorthAThread = 64;      // pairs
  static constexpr std::size_t kEnd = ~std::size_t{0};  // in filled_: no more pairs come

  void run() override;
  void fill();
  // Claims the next pair that has a place, and probes it. Returns false when there is none.
  bool probeOne(Resolvers& resolvers);
  Place& placeOf(std::size_t number) { return places_[number % kPlaces]; }

  const FileLister& lister_;
  const When when_;
  const Ends ends_;
  const std::unique_ptr<Place[]> places_;
  std::atomic<std::size_t> filled_ = 0;   // pairs before this one have, or had, a place; the caller's to set
  std::atomic<std::size_t> claimed_ = 0;  // pairs before this one are probed or being probed
  std::size_t taken_ = 0;                 // the caller's, like the rest
  bool triedToStart_ = false;
  Resolvers resolvers_;
};

}  // namespace tamrix
