// The list of what a run copies, in the order in which it lies on tape.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "pipeline/stage/globals.h"
#include "reader/list/file_lister.h"
#include "reader/list/pair_probes.h"
#include "reader/record/extent.h"
#include "reader/record/file_c.h"

namespace tamrix {

// Purpose: takes every pair from the listers, drops or refuses what can't be copied, makes a record and an
// extent of each accepted file, reads where it lies, and sorts the extents into tape order. Sees to it that
// at least one side of the copy is on a volume of the expected vendor. Threads: getList on one thread, which
// may start others (see PairProbes); afterwards the reader stage walks `extents`. Lifetime: a run's; but the
// records that buffers point at, and whatever else may be millions of pieces, live until the process ends,
// which giving them back would delay: most of all after a stop.
class CopyList {
 public:
  // Whether the records tell what is at their destinations already; that takes about 60 bytes for each that
  // is.
  enum class Existing { kForget, kKeep };

  CopyList(PipelineGlobals& globals, const RunOptions& options, Existing existing = Existing::kForget);
  CopyList(const CopyList&) = delete;
  CopyList& operator=(const CopyList&) = delete;

  // Builds the list; to be called once. Returns 0 when it is sorted and holds at least one extent, which that
  // of an audit need not. Otherwise the run ends: a lister's code, or 1 for a conflict, no volume on either
  // side, no files, no memory or an interrupt; all but the interrupt are logged. Dropped pairs don't end the
  // run: duplicates, answers of "no", sources that are gone or no regular files, destinations that are their
  // own source or can't be examined.
  [[nodiscard]] int getList();

  // In tape order once built.
  const std::vector<Extent*>& extents() const { return sorted_; }

  // The same in the order in which the listers found them.
  const std::deque<Extent>& asListed() const;

  // The pairs that were asked for and dropped although their source is a regular file.
  const std::deque<FileC>& dropped() const;

 private:
  enum class Verdict { kAccept, kDrop, kEndRun };
  struct Records;

  [[nodiscard]] int takeAllPairs();
  [[nodiscard]] int takePairs(FileLister& lister);
  // Judges one pair and adds it when it is accepted.
  Verdict takePair(const PairProbe& pair);
  void noteDropped(const PairProbe& pair);
  Verdict judgeClash(const PairProbe& pair);
  Verdict askUser(const std::string& destination);
  void checkVendor(const PairProbe& pair);
  FileC& addRecord(const PairProbe& pair);
  void addExtent(FileC& file, const PairProbe& pair);
  [[nodiscard]] int finish();
  void tellHint() const;

  PipelineGlobals& globals_;
  const RunOptions& options_;
  TapePosition previous_;  // of the last file that had one; where an empty file without one is put
  bool vendorOk_;
  bool interactive_;  // until "all" is answered
  const bool keepsExisting_;
  const bool writes_;  // an audit does not: there, a file may well be its own destination

  Records& records_;
  std::vector<Extent*> sorted_;
};

}  // namespace tamrix
