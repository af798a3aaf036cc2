// Making the directories above a destination.
#pragma once

#include <string>

namespace tamrix {

// Makes the missing directories above `path` (mode 0777 less the umask); one that exists, or that another
// process makes meanwhile, is fine. Returns 0; or -1, with `path` cut to the deepest directory that could not
// be made. Traced at kDebug; a directory that can't be made below one that could is logged at kUrgent.
[[nodiscard]] int makeSubdir(std::string& path);

}  // namespace tamrix
