#include "reader/list/copy_list.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <forward_list>
#include <limits>
#include <new>
#include <optional>

#include "config/properties.h"
#include "log/logger.h"
#include "reader/list/batch_file_lister.h"
#include "reader/list/overwrite_prompt.h"
#include "reader/list/pair_index.h"
#include "reader/list/spec_file_lister.h"

namespace tamrix {

namespace {

// Whether a destination that could not be examined because of `error` may still be there and be opened. It
// might be a source or another pair's file, so it must not be written.
bool mayHideAFile(int error) {
  return error != ENOENT && error != ENOTDIR && error != EACCES && error != ELOOP && error != ENAMETOOLONG;
}

void addBytes(std::int64_t& sum, std::int64_t bytes) {
  if (__builtin_add_overflow(sum, bytes, &sum)) sum = std::numeric_limits<std::int64_t>::max();
}

// Without holes. Where a file system doesn't tell what a file takes, all of it counts.
std::int64_t dataBytes(const struct stat& status) {
  const std::int64_t allocated = allocatedBytes(status);
  return allocated > 0 ? std::min<std::int64_t>(allocated, status.st_size) : status.st_size;
}

}  // namespace

struct CopyList::Records {
  std::deque<FileC> files;
  std::deque<Extent> extents;
  std::deque<FileC> dropped;
  std::deque<ExistingDestination> existing;
  std::optional<PairIndex> index = PairIndex();  // until the listing is complete
  std::optional<SpecFileLister> specLister;
  std::optional<BatchFileLister> batchLister;

  // New ones, never destroyed.
  static Records& make() {
    static auto* const all = new std::forward_list<Records>;
    return all->emplace_front();
  }
};

CopyList::CopyList(PipelineGlobals& globals, const RunOptions& options, Existing existing)
    : globals_(globals),
      options_(options),
      previous_{{}, Extent::kNoPartition, 0},
      vendorOk_(options.ignoreVendorCheck),
      interactive_(options.interactive),
      keepsExisting_(existing == Existing::kKeep),
      writes_(options.audit == AuditMode::kNone),
      records_(Records::make()) {}

int CopyList::getList() {
  try {
    return takeAllPairs();
  } catch (const std::bad_alloc&) {
    logger->log(kUrgent, msg::kCopyListNoMemory);
    return 1;
  }
}

int CopyList::takeAllPairs() {
  logger->log(kDebug, msg::kCopyListCalled);
  globals_.counters.phase.store(RunCounters::Phase::kListing, std::memory_order_release);
  FileLister& specLister = records_.specLister.emplace(globals_, options_);
  FileLister& batchLister = records_.batchLister.emplace(globals_, options_);

  struct Pass {
    FileLister& lister;
    const std::string& option;  // empty: the pass is left out
    MessageId<> taken;
  };
  const std::array passes = {Pass{specLister, options_.srcspec, msg::kCopyListPassSrcspec},
                             Pass{batchLister, options_.batchfile, msg::kCopyListPassBatch}};
  for (std::size_t i = 0; i < passes.size(); ++i) {
    if (passes.at(i).option.empty()) {
      logger->log(kDebug, msg::kCopyListSkipPass, static_cast<std::int32_t>(i));
      continue;
    }
    logger->log(kDebug, passes.at(i).taken);
    if (const int result = passes.at(i).lister.init(); result != 0) return result;
    if (const int result = takePairs(passes.at(i).lister); result != 0) return result;
  }
  return finish();
}

int CopyList::takePairs(FileLister& lister) {
  PairProbes probes(lister, globals_.stopExecution,
                    interactive_ ? PairProbes::When::kInTurn : PairProbes::When::kAhead,
                    writes_ ? PairProbes::Ends::kBoth : PairProbes::Ends::kSource);
  for (std::size_t number = 0;; ++number) {
    if (globals_.stopExecution.isSet()) return 1;
    const int next = lister.getNextFile();
    if (next == 1) return 0;
    if (next != 0) return 1;
    const PairProbe* const pair = probes.at(number);
    if (pair == nullptr) return 1;
    const Verdict verdict = takePair(*pair);
    if (verdict == Verdict::kEndRun) return 1;
    if (verdict == Verdict::kDrop) noteDropped(*pair);
  }
}

void CopyList::noteDropped(const PairProbe& pair) {
  if (!writes_ || !pair.sourceId.exists(pair.source) || !S_ISREG(pair.sourceStatus.st_mode)) return;
  records_.dropped.emplace_back(pair.paths, pair.sourceStatus);
}

const std::deque<Extent>& CopyList::asListed() const { return records_.extents; }

const std::deque<FileC>& CopyList::dropped() const { return records_.dropped; }

CopyList::Verdict CopyList::takePair(const PairProbe& pair) {
  const std::string& source = pair.source;
  const std::string& destination = pair.destination;
  logger->log(kDebug, msg::kCopyListSourceFile, source);
  logger->log(kDebug, msg::kCopyListGotFile, source);
  const bool destinationExists = writes_ && pair.destinationId.exists(destination);
  if (writes_ && !destinationExists && mayHideAFile(pair.destinationError)) {
    logger->log(kUrgent, msg::kCopyListStatFailed, destination);
    return Verdict::kDrop;
  }

  const Verdict clash = writes_ ? judgeClash(pair) : Verdict::kAccept;
  if (clash != Verdict::kAccept) return clash;
  const bool asks = interactive_ && destinationExists;
  if (asks) {
    // First, so that a user who answers no to everything is not told that there is no volume.
    checkVendor(pair);
    const Verdict answer = askUser(destination);
    if (answer != Verdict::kAccept) return answer;
  }
  if (!pair.sourceId.exists(source)) {
    logger->log(kUrgent, msg::kCopyListStatFailed, source);
    return Verdict::kDrop;
  }
  if (!S_ISREG(pair.sourceStatus.st_mode)) {
    logger->log(kDebug, msg::kCopyListNotRegular);
    logger->log(kWarning, msg::kCopyListNotRegularName, source);
    return Verdict::kDrop;
  }
  logger->log(kDebug, msg::kCopyListFileSize, pair.sourceStatus.st_size);
  if (!asks) checkVendor(pair);

  FileC& file = addRecord(pair);
  if (writes_) records_.index->add(file, pair.destination, pair.destinationId);
  addExtent(file, pair);
  return Verdict::kAccept;
}

CopyList::Verdict CopyList::judgeClash(const PairProbe& pair) {
  if (!options_.compareWhenListing) return Verdict::kAccept;
  const std::string& source = pair.source;
  const std::string& destination = pair.destination;
  const PathIdentity& from = pair.sourceId;
  const PathIdentity& to = pair.destinationId;
  if (from.exists(source) && to.exists(destination) && from.device == to.device && from.inode == to.inode) {
    checkVendor(pair);
    logger->log(kUrgent, msg::kCopyListSameFile, source, destination);
    return Verdict::kDrop;
  }
  const PairClash clash = records_.index->find(source, from, destination, to);
  switch (clash.kind) {
    case PairClash::Kind::kNone:
      return Verdict::kAccept;
    case PairClash::Kind::kDuplicate:
      logger->log(kWarning, msg::kCopyListDuplicate, source, destination);
      return Verdict::kDrop;
    case PairClash::Kind::kReadsDestination:
      logger->log(kUrgent, msg::kCopyListConflictChain, clash.earlier->srcPath.text(), source, destination);
      return Verdict::kEndRun;
    case PairClash::Kind::kOverwritesSource:
      logger->log(kUrgent, msg::kCopyListConflictChain, source, destination, clash.earlier->dstPath.text());
      return Verdict::kEndRun;
    case PairClash::Kind::kSameDestination:
      logger->log(kUrgent, msg::kCopyListConflictSameDestination, clash.earlier->srcPath.text(), source,
                  destination);
      return Verdict::kEndRun;
  }
  return Verdict::kEndRun;
}

CopyList::Verdict CopyList::askUser(const std::string& destination) {
  switch (askOverwrite(destination, globals_.stopExecution)) {
    case OverwriteAnswer::kNo:
      return Verdict::kDrop;
    case OverwriteAnswer::kStopped:
      return Verdict::kEndRun;
    case OverwriteAnswer::kAll:
      // Known key, known value: the store takes it, locked or not.
      interactive_ = properties->addProperty("interactive", "disable") != 0;
      return Verdict::kAccept;
    case OverwriteAnswer::kYes:
      return Verdict::kAccept;
  }
  return Verdict::kDrop;
}

void CopyList::checkVendor(const PairProbe& pair) {
  if (vendorOk_ || !pair.sourceId.exists(pair.source) || !S_ISREG(pair.sourceStatus.st_mode)) return;
  vendorOk_ = isSoftwareVendorVOQ(pair.source) ||
              isSoftwareVendorVOQ(pair.destination.substr(0, pair.destination.rfind('/')));
}

FileC& CopyList::addRecord(const PairProbe& pair) {
  FileC& file = records_.files.emplace_back(pair.paths, pair.sourceStatus);
  addBytes(globals_.totalBytes, file.fileSize);
  addBytes(globals_.dataBytes, options_.sparse ? dataBytes(pair.sourceStatus) : file.fileSize);
  globals_.counters.filesListed.add(1);
  globals_.counters.bytesListed.set(globals_.totalBytes);
  if (keepsExisting_ && pair.destinationId.exists(pair.destination)) {
    file.existing = &records_.existing.emplace_back(pair.destinationStatus);
  }
  pair.attributes.collect(file, pair.source);
  return file;
}

void CopyList::addExtent(FileC& file, const PairProbe& pair) {
  TapePosition position;
  if (pair.attributes.tellPosition(position)) {
    previous_ = position;
  } else {
    logger->log(kWarning, msg::kCopyListNoPosition, file.fileName);
    logger->log(kDebug, msg::kCopyListNoPositionPath, pair.source);
    if (file.fileSize == 0) {
      // It has no data on tape, so it may go with the last file that had a position; before the first such
      // file, with those that have none.
      position = previous_;
      logger->log(kDebug, msg::kCopyListEmptyFilePosition);
    } else {
      position = {};
      position.partition = Extent::kNoPartition;
      position.startBlock = static_cast<std::int64_t>(sorted_.size());
    }
  }
  Extent& extent = records_.extents.emplace_back();
  extent.volumeUuid = position.volumeUuid;
  extent.partition = position.partition;
  extent.startBlock = position.startBlock;
  extent.byteCount = file.fileSize;
  extent.file = &file;
  sorted_.push_back(&extent);
}

// Tells a person why nothing was found, if nothing was.
void CopyList::tellHint() const {
  if (globals_.counters.filesFound.get() > 0) return;
  const bool hasSpec = !options_.srcspec.empty();
  const bool hasBatch = !options_.batchfile.empty();
  if (!hasSpec && !hasBatch) logger->hint(msg::kCopyListHintNothingAsked);
  if (hasSpec) logger->hint(msg::kCopyListHintNoMatch, options_.srcpath, options_.srcspec);
  if (hasSpec && !options_.recursive) logger->hint(msg::kCopyListHintNotRecursive, options_.srcpath);
  if (hasBatch) logger->hint(msg::kCopyListHintNoBatchMatch, options_.batchfile);
}

int CopyList::finish() {
  // First, as a call that a stop interrupted may have missed a volume.
  if (globals_.stopExecution.isSet()) return 1;
  // An audit may find no file at all; then the source path itself tells whose volume it is.
  if (!vendorOk_ && !writes_ && sorted_.empty()) vendorOk_ = isSoftwareVendorVOQ(options_.srcpath);
  if (!vendorOk_) {
    logger->log(kUrgent, msg::kMainNoLtfsSide);
    tellHint();
    return 1;
  }
  if (sorted_.empty()) {
    logger->log(kDebug, msg::kCopyListNoFiles);
    logger->log(kWarning, msg::kCopyListNoSourceFiles);
    tellHint();
    return writes_ ? 1 : 0;
  }
  logger->log(kDebug, msg::kCopyListFilesFound, static_cast<std::int32_t>(sorted_.size()));
  records_.index.reset();
  globals_.counters.phase.store(RunCounters::Phase::kSorting, std::memory_order_release);
  if (!sortInTapeOrder(sorted_, [this] { return globals_.stopExecution.isSet(); })) return 1;
  if (globals_.stopExecution.isSet()) return 1;
  if (logger->level() <= kDebug) {
    for (const Extent* e : sorted_) {
      logger->log(kDebug, msg::kCopyListExtent, static_cast<char>(e->partition), e->startBlock, e->byteCount,
                  e->offset, e->file->fileName, e->volumeUuid.data());
    }
  }
  logger->log(kProgress, msg::kCopyListTotalBytes, globals_.totalBytes);
  return 0;
}

}  // namespace tamrix
