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

}  // namespace tamrix
