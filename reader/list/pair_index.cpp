#include "reader/list/pair_index.h"

#include <algorithm>

#include "reader/record/file_c.h"

namespace tamrix {

PairIndex::End::End(const PathIdentity& object, std::string_view path)
    : identity(object),
      rest(object.rest(path)),
      hash((object.inode * 31 + object.device) * 31 + pathTextHash(rest)) {}

bool PairIndex::End::operator==(const End& other) const {
  return identity.inode == other.identity.inode && identity.device == other.identity.device &&
         samePathText(rest, other.rest);
}

bool PairIndex::Entry::hasSource(const End& wanted) const {
  const FileIdentity& source = file->listed;
  return source.inode == wanted.identity.inode && source.device == wanted.identity.device &&
         wanted.rest.empty();
}

bool PairIndex::Entry::hasDestination(const End& wanted) const {
  if (destination->inode != wanted.identity.inode) return false;
  return End(*destination, file->dstPath.text()) == wanted;
}

PairIndex::Number PairIndex::findSource(const End& wanted) const {
  return bySource_.find(wanted.hash, [&](Number number) { return entries_[number].hasSource(wanted); });
}

PairIndex::Number PairIndex::findDestination(const End& wanted) const {
  return byDestination_.find(wanted.hash,
                             [&](Number number) { return entries_[number].hasDestination(wanted); });
}

PairIndex::Number PairIndex::findDestinationText(const std::string& path, std::size_t hash) const {
  return byDestinationText_.find(
      hash, [&](Number number) { return samePathText(entries_[number].file->dstPath.text(), path); });
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
    if (samePathText(earlier.srcPath.text(), srcPath)) return {PairClash::Kind::kDuplicate, &earlier};
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

void PairIndex::add(const FileC& file, const std::string& dstPath, const PathIdentity& destination) {
  const auto number = static_cast<Number>(entries_.size());
  if (destinations_.empty() || destinations_.back() != destination) destinations_.push_back(destination);
  entries_.push_back({&file, &destinations_.back()});
  const PathIdentity source = {file.listed.device, file.listed.inode, 0};
  const End sourceEnd(source, "");
  const End destinationEnd(destination, dstPath);
  if (findSource(sourceEnd) == NumberTable::kNone) bySource_.add(sourceEnd.hash, number);
  if (findDestination(destinationEnd) == NumberTable::kNone) byDestination_.add(destinationEnd.hash, number);
  const std::size_t textHash = pathTextHash(dstPath);
  if (findDestinationText(dstPath, textHash) == NumberTable::kNone) byDestinationText_.add(textHash, number);
}

}  // namespace tamrix
