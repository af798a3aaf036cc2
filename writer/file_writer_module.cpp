#include "writer/file_writer_module.h"

#include "log/logger.h"

namespace tamrix {

FileWriterModule::FileWriterModule(PipelineGlobals& globals, const RunOptions& options, RunFiles& runFiles)
    : WriterModule(globals, options),
      sparseMode_(globals.sparseMode != 0 ? SparseMode::kOn : SparseMode::kOff),
      runFiles_(runFiles) {
  if (globals.runLength() == RunLength::kLong) writeBehind_.emplace(globals);
  logger->log(kDebug, msg::kFileWriterConstructorProps);
}

FileWriterModule::~FileWriterModule() { logger->log(kDebug, msg::kFileWriterDestructor); }

int FileWriterModule::emptyBuffer(BufferSlot& slot) {
  if (writeBackHasFailed()) return fail();
  totalLength_ += slot.length;
  if (logger->level() <= kProgress) {
    logger->log(kProgress, msg::kFileWriterBuffer, slot.file->srcPath.text());
  }
  if (current_ == nullptr || &current_->file() != slot.file) {
    const auto open = openList_.find(slot.file->srcPath);
    if (open != openList_.end()) {
      current_ = &open->second;
    } else if (openDestination(*slot.file) != 0) {
      return fail();
    }
  }
  OpenDestination& destination = *current_;
  logger->log(kDebug, msg::kFileWriterPosition, static_cast<unsigned long long>(destination.writeOffset()),
              static_cast<long long>(slot.offset));
  const bool skips = sparseMode_ == SparseMode::kOn && slot.sparseBlock != 0;
  if ((skips ? destination.skipZeros(slot) : destination.write(slot)) != 0) {
    if (!writeBackHasFailed()) destination.discard();  // else finish() says why first
    return fail();
  }
  if (slot.endOfFile == 0) return 0;

  const int completed = destination.complete(timesAtClose_);
  current_ = nullptr;
  openList_.erase(slot.file->srcPath);
  return completed == 0 ? 0 : fail();
}

int FileWriterModule::openDestination(FileC& file) {
  // Put on the list before it is opened: should that fail, no file is left behind that is not on the list.
  const auto entry =
      openList_.try_emplace(file.srcPath, file, *this, globals_.stopExecution, writeBehind()).first;
  current_ = &entry->second;
  return current_->open(runFiles_, sparseMode_);
}

void FileWriterModule::finish() {
  if (writeBehind_) {
    const WriteBehind::Failure failure = writeBehind_->end();
    if (failure.file != nullptr) discardWrittenBack(failure);
  }
  // No half file stays behind.
  for (auto& [source, destination] : openList_) destination.discard();
}

void FileWriterModule::discardWrittenBack(const WriteBehind::Failure& failure) {
  exitCode_ = 1;
  FileC& file = failure.file->record();
  if (const auto open = openList_.find(file.srcPath); open != openList_.end()) {
    open->second.tellFailed(failure.error);
    open->second.discard();
  } else if (failure.file->isComplete) {
    OpenDestination complete(file, *this, globals_.stopExecution, nullptr);
    complete.tellFailed(failure.error);
    complete.takeBack();
    --globals_.filesCopied;
  }
}

int FileWriterModule::fail() {
  globals_.stopPipeline();
  return 1;
}

}  // namespace tamrix
