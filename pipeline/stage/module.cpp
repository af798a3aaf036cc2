#include "pipeline/stage/module.h"

#include <utility>

#include "log/logger.h"

namespace tamrix {

namespace {

void logVerifyMode(VerifyMode mode) {
  switch (mode) {
    case VerifyMode::kFail:
      return logger->log(kProgress, msg::kModuleVerifyFail);
    case VerifyMode::kWarn:
      return logger->log(kProgress, msg::kModuleVerifyWarn);
    case VerifyMode::kNotSet:
      return logger->log(kProgress, msg::kModuleVerifyNotSet);
  }
}

void logChecksumUpdateMode(ChecksumUpdateMode mode) {
  switch (mode) {
    case ChecksumUpdateMode::kCalcOnly:
      return logger->log(kProgress, msg::kModuleUpdateCalcOnly);
    case ChecksumUpdateMode::kNewOnly:
      return logger->log(kProgress, msg::kModuleUpdateNewOnly);
    case ChecksumUpdateMode::kUpdateAll:
      return logger->log(kProgress, msg::kModuleUpdateAll);
    case ChecksumUpdateMode::kNotSet:
      return logger->log(kProgress, msg::kModuleUpdateNotSet);
  }
}

}  // namespace

Module::Module(PipelineGlobals& globals, const RunOptions& options, std::string name)
    : Thread(std::move(name)), globals_(globals), options_(options) {
  logger->log(kDebug, msg::kModuleConstructor);
  logVerifyMode(options.verify);
  logChecksumUpdateMode(options.checksumUpdate);
}

Module::~Module() { logger->log(kDebug, msg::kModuleDestructor); }

int Module::getSlot(BufferSlot*& slot) {
  counters_->state.store(StageState::kAsking, std::memory_order_relaxed);
  const int result = ring_->getBufferSlot(moduleId_, slot);
  counters_->state.store(StageState::kWorking, std::memory_order_relaxed);
  return result;
}

int Module::putSlot(BufferSlot& slot) {
  // A buffer of negative length ends a file that can't be read.
  const bool endsFile = slot.endOfFile != 0 || slot.length < 0;
  const bool endsData = slot.endOfData != 0;
  counters_->bytes.add(slot.length > 0 ? slot.length : 0);
  counters_->files.add(endsFile ? 1 : 0);
  const int result = ring_->putBufferSlot(moduleId_, slot);
  counters_->buffers.add(1);
  if (endsData) counters_->state.store(StageState::kDone, std::memory_order_relaxed);
  return result;
}

}  // namespace tamrix
