#include "reader/list/spec_file_lister.h"

#include <utility>

#include "log/logger.h"

namespace tamrix {

SpecFileLister::SpecFileLister(PipelineGlobals& globals, const RunOptions& options)
    : FileLister(globals, options) {
  srcFile_ = "specsource";
  dstFile_ = "specdest";
  logger->log(kDebug, msg::kSpecFileListerConstructorProps);
}

SpecFileLister::~SpecFileLister() { logger->log(kDebug, msg::kSpecFileListerDestructor); }

int SpecFileLister::init() {
  PathList found;
  listMatching(found, options_.srcpath, options_.srcspec, options_.recursive);
  matched_ = NumberedQueue<std::string>(std::move(found));
  return 0;
}

std::size_t SpecFileLister::size() const { return matched_.size(); }

void SpecFileLister::pair(std::size_t number, std::string& source, std::string& destination) const {
  source = matched_[number];
  setDestination(source, destination);
}

int SpecFileLister::getNextFile() {
  if (taken_ == size()) return 1;
  matched_.giveBackBefore(taken_);
  const std::string& path = matched_[taken_++];
  if (!path.starts_with('/')) {
    logger->log(kUrgent, msg::kSpecFileListerRelativePath, path);
    return -1;
  }
  logger->log(kDebug, msg::kSpecFileListerNextFile, path);
  if (!hasAcceptedLength(path)) return -1;
  srcFile_ = path;
  logger->log(kDebug, msg::kSpecFileListerSource, srcFile_);
  setDestination(path, dstFile_);
  if (!hasAcceptedLength(dstFile_)) return -1;
  logger->log(kDebug, msg::kSpecFileListerDestination, dstFile_);
  return 0;
}

void SpecFileLister::setDestination(const std::string& source, std::string& destination) const {
  destination.assign(options_.dstpath).append(1, '/').append(source, options_.srcpath.size() + 1);
}

}  // namespace tamrix
