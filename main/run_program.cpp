#include "main/run_program.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "config/properties.h"
#include "config/version.h"
#include "log/logger.h"
#include "main/interrupts.h"
#include "pipeline/run/progress.h"
#include "pipeline/stage/globals.h"

namespace tamrix {

namespace {

constexpr int kFailed = 1;
constexpr int kSignalStatusBase = 128;

// Prepares the process for copying. A standard stream that the caller closed must not become the number of a
// file that is copied, or log lines would end up in it; writes to a closed pipe or over a size limit are to
// fail, not to kill.
void prepareProcess() {
  Progress::expectRequests();
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) < 0) (void)!open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY);
  }
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)std::signal(SIGXFSZ, SIG_IGN);
}

// Makes the logger follow "loglevel" and "timer", which there are once the defaults are set.
void setupLogger(const Properties& store, Logger& log) {
  std::string name;
  if (store.getProperty("loglevel", name) != 0) {
    log.log(kDebug, msg::kLoggerLevelNotDefined);
    return;
  }
  const int level = log.convertLevel(name);
  const bool timer = store.testProperty("timer", "enable") != 0;
  log.log(kDebug, msg::kLoggerLevelOption, name);
  log.reinit(level, timer);
}

// Settles all options: defaults, command line, batch file, and the command line again, so that it wins.
// Returns 0, or 1 after telling why the run ends here, or when it is interrupted.
int configure(Properties& store, Logger& log, const PipelineGlobals& globals, int argc,
              const char* const* argv) {
  if (!store.setDefaults()) {
    log.log(kUrgent, msg::kMainDefaultsNotSet);
    return kFailed;
  }
  store.lock();
  if (store.parseArgs(argc, argv) != 0) return kFailed;
  setupLogger(store, log);
  std::string batchFile;
  if (store.getProperty("batchfile", batchFile) != 0) return kFailed;
  if (store.parseFile(batchFile.c_str(), false, [&globals] { return globals.stopExecution.isSet(); }) != 0)
    return kFailed;
  setupLogger(store, log);
  if (store.parseArgs(argc, argv) != 0) return kFailed;
  setupLogger(store, log);
  store.unlock();
  for (const char* path : {"srcpath", "dstpath"}) {
    if (store.isKnown(path) && store.updatePath(path) != 0) return kFailed;
  }
  store.logProperties();
  return 0;
}

// The run itself, from the start line to the end line.
int runWith(const Program& program, Properties& store, Logger& log, PipelineGlobals& globals, int argc,
            const char* const* argv) {
  log.output(msg::kMainStart, kVersion, kRevision);
  const Interrupts interrupts(globals);
  const bool configured = configure(store, log, globals, argc, argv) == 0;
  if (!configured && Interrupts::received() == 0) return kFailed;
  if (configured) {
    const Progress progress(globals);
    program.run(globals);
  }

  if (const int number = Interrupts::received(); number != 0) {
    log.recordReturnCodeFirst(kSignalStatusBase + number);
    log.log(kUrgent, msg::kMainInterrupted, number);
  }
  const int status = log.returnCode();
  if (status != 0 && globals.filesToCopy != PipelineGlobals::kNotListed) {
    log.log(kUrgent, msg::kMainFilesNotCopied, globals.filesCopied,
            globals.filesToCopy - globals.filesCopied);
  }
  log.log(kInfo, msg::kMainEnded, status);
  if (log.level() > kInfo) log.output(msg::kMainEnded, status);
  return status;
}

}  // namespace

int runProgram(const Program& program, int argc, const char* const* argv) {
  prepareProcess();
  Properties store(program.options, program.texts);
  Logger log;
  properties = &store;
  logger = &log;
  try {
    if (log.LoadMessage("tamrix") != 0) return kFailed;
    if (log.init(kInfo) != 0) return kFailed;
    if (const char* const setting = std::getenv("TAMRIX_PROGRESS"); !log.console().settle(setting)) {
      log.log(kWarning, msg::kMainProgressNotRecognized, setting);
    }
    PipelineGlobals globals;
    return runWith(program, store, log, globals, argc, argv);
  } catch (int thrown) {
    log.output(msg::kMainCaughtException, thrown);
    log.log(kUrgent, msg::kMainCaughtException, thrown);
    return kFailed;
  }
}

}  // namespace tamrix
