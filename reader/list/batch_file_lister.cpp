#include "reader/list/batch_file_lister.h"

#include <filesystem>

#include "log/logger.h"

namespace tamrix {

namespace {

constexpr const char* kBatchVersion = "1.0";

}  // namespace

BatchFileLister::BatchFileLister(PipelineGlobals& globals, const RunOptions& options)
    : FileLister(globals, options) {
  srcFile_ = "Batchsource";
  dstFile_ = "Batchdest";
  logger->log(kDebug, msg::kBatchFileListerConstructorProps);
}

BatchFileLister::~BatchFileLister() { logger->log(kDebug, msg::kBatchFileListerDestructor); }

int BatchFileLister::init() {
  const std::string& fileName = options_.batchfile;
  logger->log(kDebug, msg::kBatchFileListerInit, fileName);

  reader_.emplace(fileName, [this] { return globals_.stopExecution.isSet(); });
  if (const int result = reader_->getFileListInBatch(read_); result != 0) {
    if (result == BatchXmlReader::kStopped) return 1;
    logger->log(kUrgent, msg::kBatchFileListerFailed);
    logger->log(kUrgent, msg::kBatchFileListerRefusedFile, fileName);
    return 1;
  }
  if (reader_->version() != kBatchVersion) {
    logger->log(kUrgent, msg::kBatchFileListerBadVersion, reader_->version());
    logger->log(kUrgent, msg::kBatchFileListerRefusedFile, fileName);
    return 1;
  }
  reader_.reset();
  for (BatchPair& pair : read_) {
    if (!makeAbsolute(pair)) return 1;
    logger->log(kDebug, msg::kBatchFileListerPair, pair.source, pair.destination);
    if (appendPair(pair) != 0) return 1;
    pair = {};
    if (globals_.stopExecution.isSet()) return 1;
  }
  read_ = {};
  return 0;
}

bool BatchFileLister::makeAbsolute(BatchPair& pair) {
  for (std::string* path : {&pair.source, &pair.destination}) {
    if (path->starts_with('/')) continue;
    if (currentDir_.empty()) {
      std::error_code error;
      currentDir_ = std::filesystem::current_path(error).string();
      if (error) {
        logger->log(kUrgent, msg::kPropertiesNoCurrentDir, error.message());
        return false;
      }
    }
    path->insert(0, currentDir_ + "/");
  }
  return true;
}

int BatchFileLister::appendPair(const BatchPair& pair) {
  const std::size_t name = pair.source.rfind('/') + 1;
  if (pair.kind == SourceKind::kPattern && pair.source.find_first_of("*?", name) != std::string::npos)
    return expand(pair);
  const FilePath source(pair.source);
  pairs_.push_back({source, FilePath(pair.destination, source)});
  globals_.counters.filesFound.add(1);
  return 0;
}

// A wildcard pair copies into the directory that holds the named destination, keeping the subdirectories that
// recursion finds.
int BatchFileLister::expand(const BatchPair& pair) {
  const std::size_t slash = pair.source.rfind('/');
  if (slash == std::string::npos) {
    logger->log(kUrgent, msg::kBatchFileListerNoSeparator);
    return 1;
  }
  const std::string directory = pair.source.substr(0, slash);
  const std::string destination = pair.destination.substr(0, pair.destination.rfind('/'));
  listMatching(matches_, directory, std::string_view(pair.source).substr(slash + 1), options_.recursive);
  const char* last = nullptr;
  const char* target = nullptr;
  for (; !matches_.empty() && !globals_.stopExecution.isSet(); matches_.pop_front()) {
    const FilePath& match = matches_.front();
    if (match.directory() != last) {
      last = match.directory();
      target = FilePath::sharedDirectory(destination + std::string(last).substr(slash));
    }
    pairs_.push_back({match, {target, match.name()}});
  }
  return 0;
}

int BatchFileLister::getNextFile() {
  if (taken_ == size()) {
    logger->log(kDebug, msg::kBatchFileListerEnd);
    return 1;
  }
  takeNext();
  logger->log(kDebug, msg::kBatchFileListerNextPair, srcFile_, dstFile_);
  return hasAcceptedLength(srcFile_) && hasAcceptedLength(dstFile_) ? 0 : -1;
}

}  // namespace tamrix
