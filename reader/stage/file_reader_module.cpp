#include "reader/stage/file_reader_module.h"

#include "log/logger.h"

namespace tamrix {

FileReaderModule::FileReaderModule(PipelineGlobals& globals, const RunOptions& options, const CopyList& list,
                                   RunFiles* runFiles)
    : ReaderModule(globals, options),
      copyList_(list),
      source_(*this, globals.stopExecution, runFiles, globals.runLength()),
      lookups_(list.extents(), globals.stopExecution) {
  logger->log(kDebug, msg::kFileReaderConstructorGlobals);
  if (!list.extents().empty()) remaining_ = list.extents().front()->byteCount;
}

FileReaderModule::~FileReaderModule() { logger->log(kDebug, msg::kFileReaderDestructor); }

int FileReaderModule::fillBuffer(BufferSlot& slot) {
  const Extent& extent = *copyList_.extents()[position_];
  FileC& file = *extent.file;
  logger->log(kDebug, msg::kFileReaderExtent, extent.startBlock, remaining_, file.fileName);
  const bool startsFile = !source_.isOpen();
  if (startsFile) counters().file.store(&file, std::memory_order_release);
  if (startsFile && openSource(file) != 0) return passOver(slot);

  const std::int64_t offset = source_.offset();
  const std::optional<SourcePiece> piece = source_.read(slot.data, remaining_, slot.capacity);
  if (!piece) return passOver(slot);
  totalRead_ += piece->length;
  remaining_ -= piece->length;
  const auto length = static_cast<std::int32_t>(piece->length);
  logger->log(kDebug, msg::kFileReaderRead, length, totalRead_, static_cast<std::int32_t>(slot.bufferId));

  const bool endsFile = source_.isComplete();
  if (endsFile) {
    logger->log(kProgress, msg::kFileReaderFileCompleted, file.fileName);
    if (source_.close() != 0) return fail();
  }
  if (remaining_ == 0 && advance() != 0) return fail();
  fillHeader(slot, file, length);
  slot.offset = static_cast<std::uint64_t>(offset);
  slot.startOfFile = startsFile ? 1 : 0;
  slot.endOfFile = endsFile ? 1 : 0;
  slot.hole = piece->isHole ? 1 : 0;
  return 0;
}

// The header of a slot that carries no more than its length tells.
void FileReaderModule::fillHeader(BufferSlot& slot, FileC& file, std::int32_t length) const {
  slot.length = length;
  slot.offset = 0;
  slot.startOfFile = 0;
  slot.endOfFile = 0;
  slot.endOfData = position_ == copyList_.extents().size() ? 1 : 0;
  slot.sparseBlock = 0;
  slot.hole = 0;
  slot.file = &file;
}

int FileReaderModule::passOver(BufferSlot& slot) {
  if (options_.audit != AuditMode::kFiles || globals_.stopExecution.isSet()) return fail();
  FileC& file = *copyList_.extents()[position_]->file;
  if (advance() != 0) return fail();
  fillHeader(slot, file, -1);
  return 0;
}

int FileReaderModule::openSource(FileC& file) {
  const std::int64_t listedSize = file.fileSize;
  const HoleSearch holes = globals_.sparseMode != 0 ? HoleSearch::kOn : HoleSearch::kOff;
  const SourceLookups::Opening opening(lookups_, position_);
  if (source_.open(file, holes) != 0) return 1;
  // A file has one extent, and that is as long as the file turns out to be.
  remaining_ += file.fileSize - listedSize;
  return 0;
}

int FileReaderModule::advance() {
  logger->log(kDebug, msg::kFileReaderExtentComplete);
  if (++position_ == copyList_.extents().size()) {
    logger->log(kDebug, msg::kFileReaderEndOfData);
    return 0;
  }
  const Extent& next = *copyList_.extents()[position_];
  remaining_ = next.byteCount;
  if (source_.offset() == next.offset) return 0;
  // Only a file with several extents needs a seek.
  logger->log(kDebug, msg::kFileReaderDiscontinuity, source_.offset(), next.offset, next.file->fileName);
  return source_.seek(next.offset);
}

int FileReaderModule::fail() {
  globals_.stopPipeline();
  return 1;
}

}  // namespace tamrix
