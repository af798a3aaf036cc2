// Running benchmarks that are to be compared with each other.
#pragma once

#include <map>
#include <string>

namespace tamrix::bench {

// Runs every registered benchmark 15 times, in random order, so that a busy spell of the machine does not hit
// one side only. Returns each one's best speed in the items or bytes per second that it
// counts, by name (with "/" and its arguments).
// Options of the benchmark library on the command line win. Ends the program on an option that is none.
std::map<std::string, double> bestSpeeds(int argc, char** argv);

}  // namespace tamrix::bench
