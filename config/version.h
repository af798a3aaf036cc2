// What the start line and -version print.
#pragma once

namespace tamrix {

inline constexpr const char* kVersion = "1.1.1.1";
inline constexpr const char* kRevision = "1000";

}  // namespace tamrix
