#include "pipeline/stage/stages.h"

#include <utility>

#include "log/logger.h"
#include "pipeline/stage/module_loops.h"

namespace tamrix {

ReaderModule::ReaderModule(PipelineGlobals& globals, const RunOptions& options)
    : Module(globals, options, "reader") {
  logger->log(kDebug, msg::kReaderModuleConstructor);
}

ReaderModule::~ReaderModule() { logger->log(kDebug, msg::kReaderModuleDestructor); }

void ReaderModule::run() {
  logger->log(kDebug, msg::kReaderModuleRun, moduleId());
  exitCode_ = withMemoryGuard([this] { return fillBuffers(); });
  if (exitCode_ != 0) globals_.stopPipeline();
}

int ReaderModule::fillBuffers() {
  for (;;) {
    BufferSlot* slot = nullptr;
    if (const int got = getSlot(slot); got != 0) {
      if (got == 1) logger->log(kUrgent, msg::kReaderModuleGetFailed, got);
      return 1;
    }
    if (fillBuffer(*slot) != 0) return 1;
    // After the put the slot belongs to the next stage.
    const bool endOfData = slot->endOfData != 0;
    if (const int put = putSlot(*slot); put != 0) {
      logger->log(kUrgent, msg::kReaderModulePutFailed, static_cast<std::int32_t>(slot->bufferId), put);
      return 1;
    }
    slot = nullptr;
    if (endOfData) {
      logger->log(kProgress, msg::kReaderModuleEndOfData);
      return 0;
    }
  }
}

int ReaderModule::fillBuffer(BufferSlot& /*slot*/) {
  logger->log(kUrgent, msg::kReaderModuleFillNotOverridden);
  return 0;
}

ProcessModule::ProcessModule(PipelineGlobals& globals, const RunOptions& options, std::string name)
    : Module(globals, options, std::move(name)) {
  logger->log(kDebug, msg::kProcessModuleConstructor);
}

ProcessModule::~ProcessModule() { logger->log(kDebug, msg::kProcessModuleDestructor); }

void ProcessModule::run() {
  static constexpr ConsumerMessages kMessages = {msg::kProcessModuleGetFailed, msg::kProcessModuleBufferSize,
                                                 msg::kProcessModuleFailed, msg::kProcessModulePutFailed,
                                                 msg::kProcessModuleEndOfData};
  exitCode_ = withMemoryGuard([this] {
    return consumeBuffers(
        kMessages, [this](BufferSlot& slot) { return processBuffer(slot); }, [](const BufferSlot&) {});
  });
  if (exitCode_ != 0) globals_.stopPipeline();
}

int ProcessModule::processBuffer(BufferSlot& /*slot*/) {
  logger->log(kUrgent, msg::kProcessModuleNotOverridden);
  return 0;
}

WriterModule::WriterModule(PipelineGlobals& globals, const RunOptions& options)
    : Module(globals, options, "writer") {
  logger->log(kDebug, msg::kWriterModuleConstructor);
}

WriterModule::~WriterModule() { logger->log(kDebug, msg::kWriterModuleDestructor); }

void WriterModule::run() {
  static constexpr ConsumerMessages kMessages = {msg::kWriterModuleGetFailed, msg::kWriterModuleBufferSize,
                                                 msg::kWriterModuleEmptyFailed, msg::kWriterModulePutFailed,
                                                 msg::kWriterModuleEndOfData};
  std::int32_t filesCopied = 0;
  exitCode_ = withMemoryGuard([&] {
    return consumeBuffers(
        kMessages, [this](BufferSlot& slot) { return emptyBuffer(slot); },
        [&](const BufferSlot& slot) { filesCopied += slot.endOfFile != 0 ? 1 : 0; });
  });
  globals_.filesCopied = filesCopied;
  finish();
  if (exitCode_ == 0) {
    logger->log(kInfo, msg::kWriterModuleFilesCopied, filesCopied);
  } else {
    globals_.stopPipeline();
  }
}

int WriterModule::emptyBuffer(BufferSlot& /*slot*/) {
  logger->log(kUrgent, msg::kWriterModuleEmptyNotOverridden);
  return 0;
}

}  // namespace tamrix
