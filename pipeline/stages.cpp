#include "pipeline/stages.h"

#include <utility>

#include "log/logger.h"
#include "pipeline/module_loops.h"

namespace tamrix {

ReaderModule::ReaderModule(PipelineGlobals& globals) : Module(globals, "reader") {
  logger->log(kDebug, msg::kReaderConstructor);
}

ReaderModule::~ReaderModule() { logger->log(kDebug, msg::kReaderDestructor); }

void ReaderModule::run() {
  logger->log(kDebug, msg::kReaderRun, moduleId());
  exitCode_ = withMemoryGuard([this] { return fillBuffers(); });
  if (exitCode_ != 0) globals_.stopPipeline();
}

int ReaderModule::fillBuffers() {
  for (;;) {
    BufferSlot* slot = nullptr;
    if (const int got = ring().getBufferSlot(moduleId(), slot); got != 0) {
      if (got == 1) logger->log(kUrgent, msg::kReaderGetFailed, got);
      return 1;
    }
    if (fillBuffer(*slot) != 0) return 1;
    // Behind the put the slot is the next stage's.
    const bool endOfData = slot->endOfData != 0;
    if (const int put = ring().putBufferSlot(moduleId(), *slot); put != 0) {
      logger->log(kUrgent, msg::kReaderPutFailed, static_cast<std::int32_t>(slot->bufferId), put);
      return 1;
    }
    slot = nullptr;
    if (endOfData) {
      logger->log(kProgress, msg::kReaderEndOfData);
      return 0;
    }
  }
}

int ReaderModule::getList() {
  logger->log(kUrgent, msg::kReaderGetListNotOverridden);
  return 0;
}

int ReaderModule::fillBuffer(BufferSlot& /*slot*/) {
  logger->log(kUrgent, msg::kReaderFillNotOverridden);
  return 0;
}

ProcessModule::ProcessModule(PipelineGlobals& globals, std::string name) : Module(globals, std::move(name)) {
  logger->log(kDebug, msg::kProcessConstructor);
}

ProcessModule::~ProcessModule() { logger->log(kDebug, msg::kProcessDestructor); }

void ProcessModule::run() {
  static constexpr ConsumerMessages kMessages = {msg::kProcessGetFailed, msg::kProcessBufferSize,
                                                 msg::kProcessFailed, msg::kProcessPutFailed,
                                                 msg::kProcessEndOfData};
  exitCode_ = withMemoryGuard([this] {
    return consumeBuffers(
        kMessages, [this](BufferSlot& slot) { return processBuffer(slot); }, [](const BufferSlot&) {});
  });
  if (exitCode_ != 0) globals_.stopPipeline();
}

int ProcessModule::processBuffer(BufferSlot& /*slot*/) {
  logger->log(kUrgent, msg::kProcessNotOverridden);
  return 0;
}

WriterModule::WriterModule(PipelineGlobals& globals) : Module(globals, "writer") {
  logger->log(kDebug, msg::kWriterConstructor);
}

WriterModule::~WriterModule() { logger->log(kDebug, msg::kWriterDestructor); }

void WriterModule::run() {
  static constexpr ConsumerMessages kMessages = {msg::kWriterGetFailed, msg::kWriterBufferSize,
                                                 msg::kWriterEmptyFailed, msg::kWriterPutFailed,
                                                 msg::kWriterEndOfData};
  std::int32_t filesCopied = 0;
  exitCode_ = withMemoryGuard([&] {
    return consumeBuffers(
        kMessages, [this](BufferSlot& slot) { return emptyBuffer(slot); },
        [&](const BufferSlot& slot) { filesCopied += slot.endOfFile != 0 ? 1 : 0; });
  });
  finish();
  if (exitCode_ == 0) {
    logger->log(kInfo, msg::kWriterFilesCopied, filesCopied);
  } else {
    globals_.stopPipeline();
  }
}

int WriterModule::emptyBuffer(BufferSlot& /*slot*/) {
  logger->log(kUrgent, msg::kWriterEmptyNotOverridden);
  return 0;
}

}  // namespace tamrix
