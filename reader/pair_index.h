// Finds pairs that can't be copied together, at a cost per pair that does not grow with the list.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <unordered_set>

#include "reader/path_identity.h"

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
  PairIndex();

  // How the pair stands to those added before. `source` and `destination` come from a PathResolver.
  PairClash find(const std::string& srcPath, const PathIdentity& source, const std::string& dstPath,
                 const PathIdentity& destination) const;

  // Adds a pair that was accepted.
  void add(const FileC& file, const PathIdentity& source, const PathIdentity& destination);

 private:
  enum class End { kSource, kDestination };
  struct Entry {
    const FileC* file;
    PathIdentity source;
    PathIdentity destination;
  };
  struct Key {
    const PathIdentity& identity;
    std::string_view rest;
  };
  using Number = std::uint32_t;  // an entry's place in entries_

  Key keyOf(Number number, End end) const;

  struct Hash {
    using is_transparent = void;
    const PairIndex* index;
    End end;
    std::size_t operator()(const Key& key) const;
    std::size_t operator()(Number number) const { return (*this)(index->keyOf(number, end)); }
  };
  struct Equal {
    using is_transparent = void;
    const PairIndex* index;
    End end;
    bool operator()(const Key& a, const Key& b) const;
    bool operator()(Number a, const Key& b) const { return (*this)(index->keyOf(a, end), b); }
    bool operator()(const Key& a, Number b) const { return (*this)(index->keyOf(b, end), a); }
    bool operator()(Number a, Number b) const { return (*this)(index->keyOf(a, end), index->keyOf(b, end)); }
  };
  using NumberSet = std::unordered_set<Number, Hash, Equal>;

  std::deque<Entry> entries_;
  NumberSet bySource_;       // of entries with the same source, the first
  NumberSet byDestination_;  // likewise
};

}  // namespace tamrix
