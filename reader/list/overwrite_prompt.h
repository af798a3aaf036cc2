// The question before an existing destination is overwritten.
#pragma once

#include <string>

#include "pipeline/stage/globals.h"

namespace tamrix {

enum class OverwriteAnswer { kYes, kNo, kAll, kStopped };

// Asks on standard output whether `destination` may be overwritten and reads a line from standard input; its
// first non-blank character decides: n or N is no, a is yes to all, anything else is yes (also 'A').
// An empty line asks again; the end of input answers no. kStopped: `stop` was set while waiting, which is
// noticed within half a second.
OverwriteAnswer askOverwrite(const std::string& destination, const StopFlag& stop);

}  // namespace tamrix
