#include "pipeline/module.h"

#include <utility>

#include "config/properties.h"
#include "log/logger.h"

namespace tamrix {

namespace {

VerifyMode readVerifyMode() {
  if (properties->testProperty("verify", "fail") != 0) {
    logger->log(kProgress, msg::kModuleVerifyFail);
    return VerifyMode::kFail;
  }
  if (properties->testProperty("verify", "warn") != 0) {
    logger->log(kProgress, msg::kModuleVerifyWarn);
    return VerifyMode::kWarn;
  }
  logger->log(kProgress, msg::kModuleVerifyNotSet);
  return VerifyMode::kNotSet;
}

ChecksumUpdateMode readChecksumUpdateMode() {
  if (properties->testProperty("checksum-update", "calconly") != 0) {
    logger->log(kProgress, msg::kModuleUpdateCalcOnly);
    return ChecksumUpdateMode::kCalcOnly;
  }
  if (properties->testProperty("checksum-update", "newonly") != 0) {
    logger->log(kProgress, msg::kModuleUpdateNewOnly);
    return ChecksumUpdateMode::kNewOnly;
  }
  if (properties->testProperty("checksum-update", "updateall") != 0) {
    logger->log(kProgress, msg::kModuleUpdateAll);
    return ChecksumUpdateMode::kUpdateAll;
  }
  logger->log(kProgress, msg::kModuleUpdateNotSet);
  return ChecksumUpdateMode::kNotSet;
}

// Logs that a stage is being made before its settings are read; returns the globals it passes through.
PipelineGlobals& traced(PipelineGlobals& globals) {
  logger->log(kDebug, msg::kModuleConstructor);
  return globals;
}

}  // namespace

Module::Module(PipelineGlobals& globals, std::string name)
    : Thread(std::move(name)),
      globals_(traced(globals)),
      verifyMode_(readVerifyMode()),
      checksumUpdateMode_(readChecksumUpdateMode()) {}

Module::~Module() { logger->log(kDebug, msg::kModuleDestructor); }

}  // namespace tamrix
