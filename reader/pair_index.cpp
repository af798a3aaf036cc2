#include "reader/pair_index.h"

#include "reader/file_c.h"

namespace tamrix {

PairIndex::PairIndex()
    : bySource_(0, Hash{this, End::kSource}, Equal{this, End::kSource}),
      byDestination_(0, Hash{this, End::kDestination}, Equal{this, End::kDestination}) {}

PairIndex::Key PairIndex::keyOf(Number number, End end) const {
  const Entry& entry = entries_[number];
  return end == End::kSource ? Key{entry.source, entry.source.rest(entry.file->srcPath)}
                             : Key{entry.destination, entry.destination.rest(entry.file->dstPath)};
}

std::size_t PairIndex::Hash::operator()(const Key& key) const {
  const std::size_t object = std::hash<std::uint64_t>()(key.identity.inode * 0x9E3779B97F4A7C15U);
  return object ^ std::hash<std::uint64_t>()(key.identity.device) ^ pathTextHash(key.rest);
}

bool PairIndex::Equal::operator()(const Key& a, const Key& b) const {
  return a.identity.inode == b.identity.inode && a.identity.device == b.identity.device &&
         samePathText(a.rest, b.rest);
}

PairClash PairIndex::find(const std::string& srcPath, const PathIdentity& source, const std::string& dstPath,
                          const PathIdentity& destination) const {
  const Key sourceKey{source, source.rest(srcPath)};
  const Key destinationKey{destination, destination.rest(dstPath)};
  const auto sameDestination = byDestination_.find(destinationKey);
  if (sameDestination != byDestination_.end()) {
    const FileC& earlier = *entries_[*sameDestination].file;
    if (samePathText(earlier.srcPath, srcPath)) return {PairClash::Kind::kDuplicate, &earlier};
  }

  PairClash clash;
  Number first = 0;
  const auto consider = [&](const NumberSet& set, NumberSet::const_iterator found, PairClash::Kind kind) {
    if (found == set.end() || (clash.kind != PairClash::Kind::kNone && *found >= first)) return;
    first = *found;
    clash = {kind, entries_[first].file};
  };
  // For one and the same earlier pair the first of these wins.
  consider(byDestination_, byDestination_.find(sourceKey), PairClash::Kind::kReadsDestination);
  consider(bySource_, bySource_.find(destinationKey), PairClash::Kind::kOverwritesSource);
  consider(byDestination_, sameDestination, PairClash::Kind::kSameDestination);
  return clash;
}

void PairIndex::add(const FileC& file, const PathIdentity& source, const PathIdentity& destination) {
  const auto number = static_cast<Number>(entries_.size());
  entries_.push_back({&file, source, destination});
  bySource_.insert(number);
  byDestination_.insert(number);
}

}  // namespace tamrix
