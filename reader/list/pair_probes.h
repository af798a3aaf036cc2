// What the system says about a listing's pairs, gathered by threads that run ahead of the listing.
#pragma once

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <memory>
#include <string>

#include "log/mutex.h"
#include "pipeline/stage/helper_threads.h"
#include "reader/list/file_lister.h"
#include "reader/list/path_identity.h"
#include "reader/list/source_attributes.h"

namespace tamrix {

// One pair, and what the system told of it.
struct PairProbe {
  FilePair paths;
  std::string source;       // the whole path
  std::string destination;  // likewise
  PathIdentity sourceId;
  PathIdentity destinationId;        // when both ends are examined, like the next but one
  struct stat sourceStatus {};       // when the source exists
  struct stat destinationStatus {};  // when the destination exists, likewise
  int destinationError = 0;          // stat's error number, when the destination does not exist
  SourceAttributes attributes;       // when the source is a regular file
};

// Purpose: most of a listing's time is spent in system calls that don't depend on each other. So helper
// threads probe a few batches of pairs ahead of the one that is taken; the caller probes, too, instead of
// waiting. Nothing is logged, and the listing comes out the same as without them. With -interactive, each
// pair is probed when its turn comes.
//
// On a fast file system one helper and the caller keep two processors busy, and more would be in each other's
// way. On a volume whose calls wait, for example for a process that serves them, the threads sleep. So where
// a batch took long and its thread slept for more than half of that time, one more helper is started, up to
// 15: the number of threads doubles with each round of batches. The time that a thread was ready to run does
// not count as sleep, so a busy machine does not make more of them.
//
// Threads: at on the thread that lists, the caller; help on the helpers. A batch belongs to the caller until
// it is offered, to the thread that claims it until its outcome is set, and then to the caller again; the
// mutex guards these three handovers. After a stop, the caller interrupts the helpers' system calls.
// Lifetime: one lister's sequence; the lister and the stop flag outlive it.
class PairProbes {
 public:
  enum class When { kAhead, kInTurn };

  // Which files of a pair are examined.
  enum class Ends { kBoth, kSource };

  static constexpr std::size_t kMostHelpers = 15;

  // REQUIRES: the lister's sequence is complete; `mostHelpers` is at most kMostHelpers.
  PairProbes(const FileLister& lister, const StopFlag& stop, When when, Ends ends,
             std::size_t mostHelpers = kMostHelpers);
  ~PairProbes();
  PairProbes(const PairProbes&) = delete;
  PairProbes& operator=(const PairProbes&) = delete;

  // The probe of pair `number`, valid until the next call; null when the stop flag was set meanwhile. Throws
  // std::bad_alloc. REQUIRES: called for 0, 1, 2 and so on, each the lister's current pair.
  const PairProbe* at(std::size_t number);

 private:
  enum class Outcome { kPending, kProbed, kStopped, kNoMemory };
  static constexpr std::size_t kPairs = 64;  // in a batch
  struct Batch {
    std::array<PairProbe, kPairs> pairs;
    std::size_t count = 0;
  };
  // What a thread that probes keeps between pairs.
  struct Resolvers {
    PathResolver source;
    PathResolver destination;
  };

  // Batches that are probed ahead, two for each thread: batch n has the place of batch n - kPlaces.
  static constexpr std::size_t kPlaces = 2 * (kMostHelpers + 1);

  // Until the end: probes what is offered.
  void help() TAMRIX_EXCLUDES(mutex_);
  // Starts the helpers that are wanted and not there yet.
  void startHelpers() TAMRIX_EXCLUDES(mutex_);
  // Fills the free places from batch `first` on.
  void offerFrom(std::size_t first);
  Outcome awaitOutcome(std::size_t batch);
  // Claims the next batch that is offered, probes it and sets its outcome; does nothing when there is none.
  void probeNext(Resolvers& resolvers) TAMRIX_EXCLUDES(mutex_);
  Outcome probe(Batch& batch, Resolvers& resolvers) const;

  const FileLister& lister_;
  const StopFlag& stop_;
  const bool ahead_;
  const Ends ends_;
  const std::size_t pairsInBatch_;
  std::array<std::unique_ptr<Batch>, kPlaces> batches_;  // each made when it is first filled
  // The caller's, like the next three.
  std::size_t mostHelpers_;
  std::size_t nextToFill_ = 0;
  Resolvers resolvers_;
  HelperThreads helpers_;

  Mutex mutex_;
  CondVar changed_;                                    // one of the following
  std::size_t offered_ TAMRIX_GUARDED_BY(mutex_) = 0;  // batches before this one are, or were, offered
  std::size_t claimed_ TAMRIX_GUARDED_BY(mutex_) = 0;  // batches before this one are, or were, claimed
  std::array<Outcome, kPlaces> outcomes_ TAMRIX_GUARDED_BY(mutex_){};
  bool isSlow_ TAMRIX_GUARDED_BY(mutex_) = false;  // the last batch took long
  std::size_t helpersWanted_ TAMRIX_GUARDED_BY(mutex_) = 1;
  bool ended_ TAMRIX_GUARDED_BY(mutex_) = false;  // the helpers are to end
};

}  // namespace tamrix
