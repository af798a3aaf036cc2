// Walking a directory tree for the files to copy.
#pragma once

#include <sys/types.h>

#include <deque>
#include <string>
#include <string_view>

#include "pipeline/stage/globals.h"
#include "reader/record/file_path.h"

namespace tamrix {

// Paths in the order in which directories returned them.
using PathList = std::deque<FilePath>;

// What a walk is for.
struct WalkRules {
  mode_t type;               // S_IFREG, S_IFCHR: the type of entry to list, symbolic links followed
  bool recursive;            // whether subdirectories are walked too
  bool reportUnopened;       // whether a directory that can't be opened is told
  std::string_view pattern;  // for the base name; see wildcard.h
};

// Appends to `list` the full paths (directory, slash, name) of the entries that `rules` ask for. A directory
// that is reached again from inside itself is passed over with a warning. A directory that can't be opened,
// searched or read to its end, and an entry that exists but can't be examined, is reported as plain output
// and recorded as return code 1; what was listed before stays. A stop cuts the walk short. What is found is
// counted in the globals.
void walkDirectory(const WalkRules& rules, const std::string& directory, PipelineGlobals& globals,
                   PathList& list);

}  // namespace tamrix
