#include "pipeline/run/module_manager.h"

#include <chrono>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "config/properties.h"
#include "log/logger.h"
#include "pipeline/ring/buffer_q.h"
#include "pipeline/run/audit.h"
#include "pipeline/run/audit_results.h"
#include "pipeline/run/progress.h"
#include "pipeline/run/waiting.h"
#include "reader/stage/file_reader_module.h"
#include "writer/checksum_algorithm.h"
#include "writer/file_writer_module.h"
#include "writer/modsum64_process_module.h"
#include "writer/sparse_process_module.h"

namespace tamrix {

namespace {

// For options whose acceptance is the store's business: a refusal is logged there.
void setOption(const char* key, const std::string& value) { (void)properties->addProperty(key, value); }

bool storesChecksums(ChecksumUpdateMode mode) {
  return mode == ChecksumUpdateMode::kNewOnly || mode == ChecksumUpdateMode::kUpdateAll;
}

}  // namespace

void ModuleManager::setGlobals(PipelineGlobals* globals) {
  globals_ = globals;
  logger->log(kDebug, msg::kManagerSetGlobals);
}

void ModuleManager::addModule(std::unique_ptr<Module> module) {
  const int id = static_cast<int>(modules_.size());
  logger->log(kDebug, msg::kManagerAddModule, id);
  module->setModuleId(id);
  modules_.push_back(std::move(module));
}

int ModuleManager::endModule() {
  logger->log(kDebug, msg::kManagerEndModuleCalled);
  return 0;
}

int ModuleManager::run() {
  logger->log(kDebug, msg::kManagerRun);
  if (properties->testProperty("audit", "tape") != 0) {
    // An audit looks at every file below the source path.
    setOption("srcspec", "*");
    setOption("recursive", "enable");
  }
  options_ = readRunOptions(*properties);
  if (options_.audit == AuditMode::kTape) {
    // A user who asks for checksums must not believe that they were stored or compared.
    const bool stores = storesChecksums(options_.checksumUpdate);
    if (stores || readAuditOptions(*properties).requireChecksum) {
      logger->log(kUrgent, msg::kManagerNeedsFileAudit, stores ? "checksum-update" : "require-checksum");
      return 1;
    }
    options_.batchfile.clear();  // its files would be listed a second time
  }
  list_.emplace(*globals_, options_);
  if (const int result = listFiles(*globals_, *list_); result != 0) return result;
  if (options_.audit == AuditMode::kTape) return auditTape();
  if (options_.audit == AuditMode::kNone) {
    globals_->filesToCopy = static_cast<std::int64_t>(list_->extents().size());  // each file has one
  }
  if (noteFiles() != 0) return 1;
  addModule(std::make_unique<FileReaderModule>(*globals_, options_, *list_, files_ ? &*files_ : nullptr));
  if (addChecksumStage() != 0) return 1;
  addSparseStage();
  addWriter();
  return options_.audit == AuditMode::kFiles ? auditFiles() : runPipeline();
}

int ModuleManager::auditTape() {
  const StopFlag& stop = globals_->stopExecution;
  AuditResults results(options_, readAuditOptions(*properties), *list_, stop);
  if (results.prepare() == 0 && Audit(options_, stop).report(*list_) == 0) results.finish();
  return 0;
}

int ModuleManager::auditFiles() {
  AuditResults results(options_, readAuditOptions(*properties), *list_, globals_->stopExecution);
  if (results.prepare() != 0) return 1;
  const int result = list_->extents().empty() ? 0 : runPipeline();
  if (result == 0) results.finish();
  return result;
}

int ModuleManager::addChecksumStage() {
  if (!options_.asksForChecksum && options_.audit != AuditMode::kFiles) return 0;
  logger->log(kDebug, msg::kManagerAddChecksumModule);
  const std::string& checksum = options_.checksum;
  if (checksum.empty()) {
    // Kept: the text speaks of checksum-update, whichever option asked for the stage.
    logger->log(kUrgent, msg::kManagerChecksumMissing);
    return 1;
  }
  setOption("checksumea", checksumAttribute(checksum));
  options_.checksumAttribute = readRunOptions(*properties).checksumAttribute;
  auto algorithm = makeChecksumAlgorithm(checksum);
  if (algorithm == nullptr) {
    logger->log(kUrgent, msg::kManagerChecksumUnsupported, checksum);
    return 1;
  }
  logger->log(kDebug, msg::kManagerAddModsum64);
  addModule(std::make_unique<modsum64ProcessModule>(*globals_, options_, std::move(algorithm)));
  globals_->hasProcessModule = 1;
  return 0;
}

void ModuleManager::addSparseStage() {
  if (!options_.sparse) {
    logger->log(kDebug, msg::kManagerSparseDisabled);
    return;
  }
  logger->log(kDebug, msg::kManagerSparseEnabled);
  addModule(std::make_unique<sparseProcessModule>(*globals_, options_));
  globals_->hasProcessModule = 1;
  globals_->sparseMode = 1;
}

int ModuleManager::noteFiles() {
  if (options_.audit != AuditMode::kNone) return 0;
  try {
    files_.emplace(list_->extents(), list_->dropped());
  } catch (const std::bad_alloc&) {
    logger->log(kUrgent, msg::kCopyListNoMemory);
    return 1;
  }
  return 0;
}

void ModuleManager::addWriter() {
  if (options_.audit != AuditMode::kNone) return;
  logger->log(kDebug, msg::kManagerAddWriter);
  addModule(std::make_unique<FileWriterModule>(*globals_, options_, *files_));
  globals_->hasWriter = 1;
}

int ModuleManager::runPipeline() {
  BufferQ ring;
  if (ring.createQ(static_cast<int>(modules_.size()), globals_->stopExecution, options_) != 0) return 1;
  beginCounting(ring);
  const auto begun = std::chrono::steady_clock::now();
  startModules(ring);
  logger->log(kDebug, msg::kManagerWaitForThreads);
  for (std::size_t id = 0; id < modules_.size(); ++id) {
    logger->log(kDebug, msg::kManagerEndModule, static_cast<std::int32_t>(id));
    waitForThread(*globals_, *modules_[id], [&] {
      ring.wakeAll();
      for (const auto& module : modules_) module->interrupt();
    });
    modules_[id]->join();
  }
  for (std::size_t id = 0; id < modules_.size(); ++id) {
    logger->log(kDebug, msg::kManagerDeleteModule, static_cast<std::int32_t>(id));
    modules_[id].reset();
  }
  modules_.clear();
  globals_->counters.phase.store(RunCounters::Phase::kEnding, std::memory_order_release);
  tellSummary(globals_->counters, std::chrono::steady_clock::now() - begun, ring.waited(1), ring.waited(0));
  return 0;
}

void ModuleManager::beginCounting(const BufferQ& ring) {
  RunCounters& counters = globals_->counters;
  counters.files = static_cast<std::int64_t>(list_->extents().size());
  counters.bytes = globals_->totalBytes;
  counters.buffers = ring.bufferCount();
  counters.lastStage = modules_.size() - 1;
  counters.writes = globals_->hasWriter != 0;
  counters.phase.store(RunCounters::Phase::kCopying, std::memory_order_release);
}

void ModuleManager::startModules(BufferQ& ring) {
  for (std::size_t id = 0; id < modules_.size(); ++id) {
    modules_[id]->setRing(ring);
    logger->log(kDebug, msg::kManagerStartModule, static_cast<std::int32_t>(id));
    if (const int error = modules_[id]->start(&globals_->event); error != 0) {
      logger->log(kUrgent, msg::kManagerCannotStartModule, static_cast<std::int32_t>(id),
                  std::strerror(error));
      globals_->stopPipeline();
      return;
    }
  }
}

}  // namespace tamrix
