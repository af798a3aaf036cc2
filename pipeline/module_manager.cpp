#include "pipeline/module_manager.h"

#include <cstring>
#include <string>
#include <utility>

#include "config/properties.h"
#include "log/logger.h"
#include "pipeline/audit.h"
#include "pipeline/buffer_q.h"
#include "reader/file_reader_module.h"
#include "writer/file_writer_module.h"
#include "writer/modsum64_process_module.h"
#include "writer/sparse_process_module.h"

namespace tamrix {

namespace {

constexpr const char* kChecksumName = "modsum64";
constexpr const char* kChecksumAttributePrefix = "user._ltfs.";

// The value of an option; empty when it is not set.
std::string option(const char* key) {
  const char* value = nullptr;
  return properties->getProperty(key, value) == 0 ? value : "";
}

// For options whose acceptance is the store's business: a refusal is logged there.
void setOption(const char* key, const std::string& value) { (void)properties->addProperty(key, value); }

}  // namespace

void ModuleManager::setGlobals(PipelineGlobals* globals) {
  globals_ = globals;
  logger->log(kDebug, msg::kMomSetGlobals);
}

int ModuleManager::addModule(std::unique_ptr<Module> module) {
  const int id = static_cast<int>(modules_.size());
  logger->log(kDebug, msg::kMomAddModule, id);
  module->setModuleId(id);
  modules_.push_back(std::move(module));
  return 0;
}

int ModuleManager::endModule() {
  logger->log(kDebug, msg::kMomEndModuleCalled);
  return 0;
}

int ModuleManager::run() {
  logger->log(kDebug, msg::kMomRun);
  const bool tapeAudit = properties->testProperty("audit", "tape") != 0;
  if (tapeAudit) {
    // An audit looks at every file below the source path.
    setOption("srcspec", "*");
    setOption("recursive", "enable");
  }
  auto reader = std::make_unique<FileReaderModule>(*globals_);
  if (const int result = reader->getList(); result != 0) return result;
  if (tapeAudit) {
    (void)Audit(*globals_).report(reader->copyList());
    return 0;
  }
  addModule(std::move(reader));
  if (addChecksumStage() != 0) return 1;
  addSparseStage();
  addWriter();
  return runPipeline();
}

int ModuleManager::addChecksumStage() {
  if (option("verify").empty() && option("checksum-update").empty() &&
      properties->testProperty("audit", "files") == 0) {
    return 0;
  }
  logger->log(kDebug, msg::kMomAddChecksumModule);
  const std::string checksum = option("checksum");
  if (checksum.empty()) {
    // Kept: the text speaks of checksum-update, whichever option asked for the stage.
    logger->log(kUrgent, msg::kMomChecksumMissing);
    return 1;
  }
  setOption("checksumea", kChecksumAttributePrefix + checksum);
  if (checksum != kChecksumName) {
    logger->log(kUrgent, msg::kMomChecksumUnsupported, checksum);
    return 1;
  }
  logger->log(kDebug, msg::kMomAddModsum64);
  addModule(std::make_unique<modsum64ProcessModule>(*globals_));
  globals_->hasProcessModule = 1;
  return 0;
}

void ModuleManager::addSparseStage() {
  if (properties->testProperty("sparse", "enable") == 0) {
    logger->log(kDebug, msg::kMomSparseDisabled);
    return;
  }
  logger->log(kDebug, msg::kMomSparseEnabled);
  addModule(std::make_unique<sparseProcessModule>(*globals_));
  globals_->hasProcessModule = 1;
  globals_->sparseMode = 1;
}

void ModuleManager::addWriter() {
  if (!option("audit").empty()) return;
  logger->log(kDebug, msg::kMomAddWriter);
  addModule(std::make_unique<FileWriterModule>(*globals_));
  globals_->hasWriter = 1;
}

int ModuleManager::runPipeline() {
  BufferQ ring;
  if (ring.createQ(static_cast<int>(modules_.size()), globals_->stopExecution) != 0) return 1;
  startModules(ring);
  logger->log(kDebug, msg::kMomWaitForThreads);
  for (std::size_t id = 0; id < modules_.size(); ++id) {
    logger->log(kDebug, msg::kMomEndModule, static_cast<std::int32_t>(id));
    modules_[id]->join();
  }
  for (std::size_t id = 0; id < modules_.size(); ++id) {
    logger->log(kDebug, msg::kMomDeleteModule, static_cast<std::int32_t>(id));
    modules_[id].reset();
  }
  modules_.clear();
  return 0;
}

void ModuleManager::startModules(BufferQ& ring) {
  for (std::size_t id = 0; id < modules_.size(); ++id) {
    modules_[id]->setRing(ring);
    logger->log(kDebug, msg::kMomStartModule, static_cast<std::int32_t>(id));
    if (const int error = modules_[id]->start(); error != 0) {
      logger->log(kUrgent, msg::kMomCannotStartModule, static_cast<std::int32_t>(id), std::strerror(error));
      globals_->stopPipeline();
      return;
    }
  }
}

}  // namespace tamrix
