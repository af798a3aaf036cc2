// Makes the calls that ask about files slow in this program, as a mounted tape volume's may be.
#pragma once

#include <chrono>

namespace tamrix::bench {

// From now on stat, lstat, getxattr and listxattr sleep for so long before each call, on any thread. The
// program has functions of its own of these names, which stand before the system's.
void setCallDelay(std::chrono::nanoseconds delay);

}  // namespace tamrix::bench
