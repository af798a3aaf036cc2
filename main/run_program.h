// A whole program as one call: what tamrix and its companions share.
#pragma once

#include <span>

#include "config/known_properties.h"
#include "config/properties.h"
#include "pipeline/stage/globals.h"

namespace tamrix {

// What makes one program differ from another. All that it points at outlives the run.
struct Program {
  std::span<const KnownProperty> options;
  ProgramTexts texts;  // usage and hint
  // The run, once all options are settled. What goes wrong in it is logged, and so is among the logger's
  // return codes.
  void (*run)(PipelineGlobals& globals);
};

// Runs a program with its arguments: reads the configuration, calls the program's run, returns the exit
// status (0 when all that was asked for was done, see README.md for the others). To be called once, on the
// main thread. It takes over the process's handling of interrupts and of writes to closed pipes or over a
// size limit.
[[nodiscard]] int runProgram(const Program& program, int argc, const char* const* argv);

// tamrix: copies files.
[[nodiscard]] int runTamrix(int argc, const char* const* argv);
// tamrix-audit: reports how files lie on tape, verifies and stores checksums.
[[nodiscard]] int runTamrixAudit(int argc, const char* const* argv);
// tamrix-plan: tells what a copy would do, and writes it as batch files.
[[nodiscard]] int runTamrixPlan(int argc, const char* const* argv);

}  // namespace tamrix
