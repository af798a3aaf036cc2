#include "reader/list/file_lister.h"

#include <sys/stat.h>

#include "log/logger.h"

namespace tamrix {

FileLister::FileLister(PipelineGlobals& globals, const RunOptions& options)
    : globals_(globals), options_(options) {
  logger->log(kDebug, msg::kFileListerConstructorProps);
}

FileLister::~FileLister() { logger->log(kDebug, msg::kFileListerDestructor); }

void FileLister::dirInfoRecursive(PathList& list, const std::string& directory, std::string_view pattern) {
  walkDirectory({S_IFREG, true, true, pattern}, directory, globals_, list);
}

void FileLister::dirInfo(PathList& list, const std::string& directory, std::string_view pattern) {
  walkDirectory({S_IFREG, false, true, pattern}, directory, globals_, list);
}

int FileLister::init() { return 1; }

int FileLister::getNextFile() { return 0; }

void FileLister::takeNext() {
  pairs_.giveBackBefore(taken_);
  const FilePair& next = pairs_[taken_++];
  next.source.copyTo(srcFile_);
  next.destination.copyTo(dstFile_);
}

void FileLister::listMatching(PathList& result, const std::string& directory, std::string_view pattern,
                              bool recursive) {
  if (recursive) {
    dirInfoRecursive(result, directory, pattern);
  } else {
    dirInfo(result, directory, pattern);
  }
}

bool FileLister::hasAcceptedLength(const std::string& path) {
  if (path.size() <= kMaxPathLength) return true;
  logger->log(kUrgent, msg::kSpecFileListerPathTooLong, static_cast<std::int32_t>(path.size() + 1));
  logger->log(kUrgent, msg::kFileListerPathTooLong, static_cast<std::int32_t>(kMaxPathLength), path);
  return false;
}

}  // namespace tamrix
