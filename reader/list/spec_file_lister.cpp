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
  return listMatching(matched_, options_.srcpath, options_.srcspec, options_.recursive);
}

int SpecFileLister::getNextFile() {
  if (matched_.empty()) return 1;
  const std::string path = std::move(matched_.front());
  matched_.pop_front();
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

bool SpecFileLister::peekBehindCurrent(std::size_t ahead, std::string& source,
                                       std::string& destination) const {
  if (ahead >= matched_.size()) return false;
  source = matched_[ahead];
  setDestination(source, destination);
  return true;
}

void SpecFileLister::setDestination(const std::string& source, std::string& destination) const {
  destination.assign(options_.dstpath).append(1, '/').append(source, options_.srcpath.size() + 1);
}

}  // namespace tamrix
