// The whole program as one call.
#pragma once

namespace tamrix {

// Runs tamrix with the arguments of a program: reads the configuration, copies, returns the exit status (0
// when all that was asked for was done, see README.md for the others). To be called once, on the main thread.
// It takes over the process's handling of interrupts and of writes to closed pipes or over a size limit.
int runTamrix(int argc, const char* const* argv);

}  // namespace tamrix
