#include "reader/list/spec_file_lister.h"

#include <string>

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
  listMatching(found_, options_.srcpath, options_.srcspec, options_.recursive);
  const char* last = nullptr;
  const char* destination = nullptr;
  for (; !found_.empty() && !globals_.stopExecution.isSet(); found_.pop_front()) {
    const FilePath& source = found_.front();
    if (source.directory() != last) {
      last = source.directory();
      // What is below the source directory goes to the same place below the destination directory.
      destination = FilePath::sharedDirectory(options_.dstpath + "/" +
                                              std::string(last).substr(options_.srcpath.size() + 1));
    }
    pairs_.push_back({source, {destination, source.name()}});
  }
  return 0;
}

int SpecFileLister::getNextFile() {
  if (taken_ == size()) return 1;
  takeNext();
  if (!srcFile_.starts_with('/')) {
    logger->log(kUrgent, msg::kSpecFileListerRelativePath, srcFile_);
    return -1;
  }
  logger->log(kDebug, msg::kSpecFileListerNextFile, srcFile_);
  if (!hasAcceptedLength(srcFile_)) return -1;
  logger->log(kDebug, msg::kSpecFileListerSource, srcFile_);
  if (!hasAcceptedLength(dstFile_)) return -1;
  logger->log(kDebug, msg::kSpecFileListerDestination, dstFile_);
  return 0;
}

}  // namespace tamrix
