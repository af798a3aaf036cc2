#include "reader/spec_file_lister.h"

#include <utility>

#include "config/properties.h"
#include "log/logger.h"

namespace tamrix {

SpecFileLister::SpecFileLister(PipelineGlobals& globals) : FileLister(globals) {
  srcFile_ = "specsource";
  dstFile_ = "specdest";
  logger->log(kDebug, msg::kSpecListerConstructorProps);
}

SpecFileLister::~SpecFileLister() { logger->log(kDebug, msg::kSpecListerDestructor); }

int SpecFileLister::init() {
  properties->getProperty("srcpath", srcpath_);
  properties->getProperty("dstpath", dstpath_);
  properties->getProperty("srcspec", srcspec_);
  const bool recursive = properties->testProperty("recursive", "enable") != 0;
  return listMatching(matched_, srcpath_, srcspec_, recursive);
}

int SpecFileLister::getNextFile() {
  if (matched_.empty()) return 1;
  const std::string path = std::move(matched_.front());
  matched_.pop_front();
  if (!path.starts_with('/')) {
    logger->log(kUrgent, msg::kSpecListerRelativePath, path);
    return -1;
  }
  logger->log(kDebug, msg::kSpecListerNextFile, path);
  if (!hasAcceptedLength(path)) return -1;
  srcFile_ = path;
  logger->log(kDebug, msg::kSpecListerSource, srcFile_);
  setDestination(path, dstFile_);
  if (!hasAcceptedLength(dstFile_)) return -1;
  logger->log(kDebug, msg::kSpecListerDestination, dstFile_);
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
  destination.assign(dstpath_).append(1, '/').append(source, srcpath_.size() + 1);
}

}  // namespace tamrix
