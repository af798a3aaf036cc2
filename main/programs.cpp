// The programs: their options and what each runs.
#include "config/known_properties.h"
#include "config/run_options.h"
#include "main/run_program.h"
#include "pipeline/run/module_manager.h"
#include "pipeline/run/plan.h"

namespace tamrix {

namespace {

void runPipeline(PipelineGlobals& globals) {
  ModuleManager manager;
  manager.setGlobals(&globals);
  (void)manager.run();  // what went wrong is among the recorded return codes
}

void runAudit(PipelineGlobals& globals) {
  const char* value = nullptr;
  if (properties->getProperty("srcspec", value) != 0 && properties->getProperty("batchfile", value) != 0) {
    (void)properties->addProperty("srcspec", "*");  // any value is accepted
  }
  runPipeline(globals);
}

void runPlan(PipelineGlobals& globals) {
  RunOptions options = readRunOptions(*properties);
  options.interactive = false;  // the copy asks
  (void)Plan(globals, options, readPlanOptions(*properties)).run();
}

}  // namespace

int runTamrix(int argc, const char* const* argv) {
  return runProgram({programProperties(), {}, runPipeline}, argc, argv);
}

int runTamrixAudit(int argc, const char* const* argv) {
  constexpr ProgramTexts kTexts = {msg::kAuditUsage00.number, msg::kAuditParamHint.number - 1,
                                   msg::kAuditUsageHint, msg::kAuditParamHint};
  return runProgram({auditProperties(), kTexts, runAudit}, argc, argv);
}

int runTamrixPlan(int argc, const char* const* argv) {
  constexpr ProgramTexts kTexts = {msg::kPlanUsage00.number, msg::kPlanParamHint.number - 1,
                                   msg::kPlanUsageHint, msg::kPlanParamHint};
  return runProgram({planProperties(), kTexts, runPlan}, argc, argv);
}

}  // namespace tamrix
