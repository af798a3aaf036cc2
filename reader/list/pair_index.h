// Finds pairs that can't be copied together, at a cost per pair that does not grow with the list.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

#include "reader/list/path_identity.h"
#include "reader/record/number_table.h"

namespace tamrix {

struct FileC;

// How a new pair stands to an earlier one.
struct PairClash {
  enum class Kind {
    kNone,
    kDuplicate,         // the same source to the same destination
    kReadsDestination,  // its source is what the earlier pair writes
    kOverwritesSource,  // its destination is what the earlier pair reads
    kSameDestination,   // both write the same file
  };
  Kind kind = Kind::kNone;
  const FileC* earlier = nullptr;  // the first pair, in order of addition, that clashes
};

// Purpose: holds the accepted pairs of a listing by the files they mean (see PathIdentity), so that another
// spelling or a link is seen as the file it is.
// Threads: one. Lifetime: a listing; the records must outlive it.
class PairIndex {
 public:
  // How the pair stands to those added before. `source` and `destination` come from a PathResolver.
  PairClash find(const std::string& srcPath, const PathIdentity& source, const std::string& dstPath,
                 const PathIdentity& destination) const;

  // Adds a pair that was accepted, so its source exists and is the one listed. `dstPath` and `destination`
  // are what find was given.
  void add(const FileC& file, const std::string& dstPath, const PathIdentity& destination);

 private:
  using Number = NumberTable::Number;  // an entry's place in entries_
  // One end of a pair, with what it is looked up by.
  struct End {
    End(const PathIdentity& object, std::string_view path);
    bool operator==(const End& other) const;

    const PathIdentity& identity;
    const std::string_view rest;
    const std::size_t hash;
  };
  struct Entry {
    const FileC* file;
    const PathIdentity* destination;  // in destinations_

    bool hasSource(const End& wanted) const;
    bool hasDestination(const End& wanted) const;
  };

  // The first entry with this source, this destination; NumberTable::kNone when there is none.
  Number findSource(const End& wanted) const;
  Number findDestination(const End& wanted) const;
  // The first entry whose destination reads like `path`, whatever is known of it.
  Number findDestinationText(const std::string& path, std::size_t hash) const;

  std::deque<Entry> entries_;
  // What is known of them. In a directory that is yet to be made, one does for all.
  std::deque<PathIdentity> destinations_;
  NumberTable bySource_;       // of entries with the same source, the first
  NumberTable byDestination_;  // likewise
  NumberTable byDestinationText_;
};

}  // namespace tamrix
