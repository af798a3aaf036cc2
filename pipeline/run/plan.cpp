#include "pipeline/run/plan.h"

#include <sys/stat.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "config/properties.h"
#include "log/logger.h"
#include "pipeline/run/waiting.h"
#include "reader/record/run_files.h"
#include "writer/checksum_algorithm.h"
#include "writer/copied_times.h"

namespace tamrix {

namespace {

bool isPlanned(const FileC& file) {
  return file.planResult == PlanResult::kCopy || file.planResult == PlanResult::kOverwrite;
}

// Whether the file at `path` has an attribute with exactly this value.
bool hasAttribute(const std::string& path, const std::string& name, std::string_view value) {
  // One more, since with room for none the system tells nothing but the length.
  std::vector<char> found(value.size() + 1);
  const ssize_t n = getxattr(path.c_str(), name.c_str(), found.data(), found.size());
  return n >= 0 && std::string_view(found.data(), static_cast<std::size_t>(n)) == value;
}

}  // namespace

Plan::Plan(PipelineGlobals& globals, const RunOptions& options, PlanOptions planOptions)
    : globals_(globals),
      options_(options),
      planOptions_(std::move(planOptions)),
      list_(globals, options, CopyList::Existing::kKeep),
      files_(planOptions_, optionsOfPlan(*properties)) {}

int Plan::run() {
  try {
    return make();
  } catch (const std::bad_alloc&) {
    logger->log(kUrgent, msg::kCopyListNoMemory);
    return 1;
  }
}

int Plan::make() {
  if (checkOptions() != 0 || list() != 0 || spareDropped() != 0) return 1;
  if (files_.open(list_) != 0 || (report_ && report_->open(list_) != 0)) return 1;
  if (walkInTapeOrder() != 0 || walkInDirectoryOrder() != 0) return 1;
  volumes_->warn();
  rooms_.check();
  tell();
  if (globals_.stopExecution.isSet() || files_.complete() != 0) return 1;
  return report_ ? report_->complete(sums_, *volumes_, rooms_) : 0;
}

int Plan::checkOptions() {
  const std::string& checksum = options_.checksum;
  if (!checksum.empty() && !planOptions_.missing) {
    logger->log(kUrgent, msg::kPlanChecksumNeedsMissing);
    return 1;
  }
  if (!checksum.empty() && makeChecksumAlgorithm(checksum) == nullptr) {
    logger->log(kUrgent, msg::kManagerChecksumUnsupported, checksum);
    return 1;
  }
  if (!planOptions_.output.empty() && planOptions_.output == planOptions_.report) {
    logger->log(kUrgent, msg::kPlanWriteFailed, planOptions_.output, std::strerror(EEXIST));
    return 1;
  }
  if (!checksum.empty()) checksumAttribute_ = checksumAttribute(checksum);
  if (!planOptions_.report.empty()) report_.emplace(planOptions_.report);
  volumes_.emplace(*tape::findGeneration(planOptions_.drive));  // the store takes no other
  return 0;
}

int Plan::list() {
  const int result = listFiles(globals_, list_);
  // Nothing else ends a listing without an error.
  if (result != 0 && logger->returnCode() == 0 && !globals_.stopExecution.isSet()) {
    logger->log(kUrgent, msg::kPlanNoFiles);
  }
  return result;
}

// The writer spares the sources of pairs that the listing dropped. In a plan they don't stand any more, so
// what would end the copy ends the plan.
int Plan::spareDropped() const {
  if (list_.dropped().empty()) return 0;
  const RunFiles files(list_.extents(), list_.dropped());
  for (const Extent* extent : list_.extents()) {
    const FileC& file = *extent->file;
    const FileC* const other = file.existing != nullptr ? files.findSource(file.existing->identity) : nullptr;
    if (other == nullptr) continue;
    logger->log(kUrgent, msg::kFileWriterIsSource, file.srcPath.text(), file.dstPath.text(),
                other->srcPath.text(), other->dstPath.text());
    return 1;
  }
  return 0;
}

int Plan::walkInTapeOrder() {
  for (const Extent* extent : list_.extents()) {
    if (globals_.stopExecution.isSet() || judge(*extent) != 0) return 1;
    const FileC& file = *extent->file;
    ++sums_.results.at(static_cast<std::size_t>(file.planResult));
    if (isPlanned(file)) {
      sums_.bytes += file.fileSize;
      volumes_->addInTapeOrder(*extent);
    }
    if (report_ && report_->add(*extent) != 0) return 1;
  }
  if (sums_.withoutChecksum != 0) {
    logger->log(kWarning, msg::kPlanWithoutChecksum, sums_.withoutChecksum, checksumAttribute_);
  }
  return 0;
}

int Plan::walkInDirectoryOrder() {
  std::vector<const Extent*> order;
  for (const Extent& extent : list_.asListed()) {
    if (globals_.stopExecution.isSet()) return 1;
    if (!isPlanned(*extent.file)) continue;
    rooms_.add(*extent.file);
    order.push_back(&extent);
  }
  // A batch file may have any order, often that of the tape.
  if (!options_.batchfile.empty()) {
    std::sort(order.begin(), order.end(),
              [](const Extent* a, const Extent* b) { return a->file->srcPath < b->file->srcPath; });
  }
  for (const Extent* extent : order) volumes_->addInDirectoryOrder(*extent);
  return 0;
}

int Plan::judge(const Extent& extent) {
  FileC& file = *extent.file;
  const std::string source = file.srcPath.text();
  const std::string destination = file.dstPath.text();
  if (planOptions_.missing && isPresent(file)) {
    logger->log(kProgress, msg::kPlanPresent, destination);
    file.planResult = PlanResult::kPresent;
    return 0;
  }
  std::optional<BatchEntry> entry;
  if (files_.areWanted() && !(entry = batchEntry(source, destination))) {
    logger->log(kUrgent, msg::kPlanNameLeftOut, source, destination);
    file.planResult = PlanResult::kLeftOut;
    return 0;
  }
  if (file.existing != nullptr) {
    logger->log(kProgress, msg::kPlanOverwrites, destination);
    file.planResult = PlanResult::kOverwrite;
  }
  return entry ? files_.add(extent, *entry) : 0;
}

// Whether the destination is what a copy would make of it: the writer sets the times last.
bool Plan::isPresent(const FileC& file) {
  const ExistingDestination* const there = file.existing;
  if (there == nullptr || !S_ISREG(there->mode) || there->size != file.fileSize) return false;
  const timespec found = copiedTime(there->modifyTime);
  const timespec wanted = copiedTime(file.modifyTime);
  if (found.tv_sec != wanted.tv_sec || found.tv_nsec != wanted.tv_nsec) return false;
  if (checksumAttribute_.empty()) return true;
  const EaList::Iterator stored = file.eaList.find(checksumAttribute_);
  if (stored == file.eaList.end()) {
    ++sums_.withoutChecksum;
    return false;
  }
  const ExtendedAttr attribute = *stored;
  return hasAttribute(file.dstPath.text(), checksumAttribute_, {attribute.value, attribute.valueLength});
}

void Plan::tell() const {
  volumes_->tell();
  rooms_.tell();
  logger->output(msg::kPlanCounts, sums_.toCopy(), sizeText(sums_.bytes), sums_.count(PlanResult::kOverwrite),
                 sums_.count(PlanResult::kPresent), sums_.count(PlanResult::kLeftOut));
}

}  // namespace tamrix
