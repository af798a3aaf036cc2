#include "reader/list/pair_index.h"

#include <algorithm>

#include "reader/record/file_c.h"

namespace tamrix {

PairIndex::End::End(const PathIdentity& object, const std::string& path)
    : identity(object),
      rest(object.rest(path)),
      hash((object.inode * 31 + object.device) * 31 + pathTextHash(rest)) {}

bool PairIndex::End::operator==(const End& other) const {
  return identity.inode == other.identity.inode && identity.device == other.identity.device &&
         samePathText(rest, other.rest);
}

PairIndex::Number PairIndex::findSource(const End& wanted) const {
  return bySource_.find(wanted.hash, [&](Number number) {
    return End(entries_[number].source, entries_[number].file->srcPath) == wanted;
  });
}

PairIndex::Number PairIndex::findDestination(const End& wanted) const {
  return byDestination_.find(wanted.hash, [&](Number number) {
    return End(entries_[number].destination, entries_[number].file->dstPath) == wanted;
  });
}

PairIndex::Number PairIndex::findDestinationText(const std::string& path, std::size_t hash) const {
  return byDestinationText_.find(
      hash, [&](Number number) { return samePathText(entries_[number].file->dstPath, path); });
}

PairClash PairIndex::find(const std::string& srcPath, const PathIdentity& source, const std::string& dstPath,
                          const PathIdentity& destination) const {
  const End sourceEnd(source, srcPath);
  const End destinationEnd(destination, dstPath);
  const std::size_t textHash = pathTextHash(dstPath);
  byDestinationText_.prefetch(textHash);
  // Prefetch all four, so that the cache misses overlap.
  for (const End* end : {&sourceEnd, &destinationEnd}) {
    bySource_.prefetch(end->hash);
    byDestination_.prefetch(end->hash);
  }

  const Number sameDestination =
      std::min(findDestination(destinationEnd), findDestinationText(dstPath, textHash));
  if (sameDestination != NumberTable::kNone) {
    const FileC& earlier = *entries_[sameDestination].file;
    if (samePathText(earlier.srcPath, srcPath)) return {PairClash::Kind::kDuplicate, &earlier};
  }

  PairClash clash;
  Number first = NumberTable::kNone;
  const auto consider = [&](Number found, PairClash::Kind kind) {
    if (found >= first) return;
    first = found;
    clash = {kind, entries_[first].file};
  };
  // For one and the same earlier pair the first of these wins.
  consider(findDestination(sourceEnd), PairClash::Kind::kReadsDestination);
  consider(findSource(destinationEnd), PairClash::Kind::kOverwritesSource);
  consider(sameDestination, PairClash::Kind::kSameDestination);
  return clash;
}

void PairIndex::add(const FileC& file, const PathIdentity& source, const PathIdentity& destination) {
  const auto number = static_cast<Number>(entries_.size());
  entries_.push_back({&file, source, destination});
  const End sourceEnd(source, file.srcPath);
  const End destinationEnd(destination, file.dstPath);
  if (findSource(sourceEnd) == NumberTable::kNone) bySource_.add(sourceEnd.hash, number);
  if (findDestination(destinationEnd) == NumberTable::kNone) byDestination_.add(destinationEnd.hash, number);
  const std::size_t textHash = pathTextHash(file.dstPath);
  if (findDestinationText(file.dstPath, textHash) == NumberTable::kNone)
    byDestinationText_.add(textHash, number);
}

}  // namespace tamrix
