// The options that exist: one row each, walked by defaults, acceptance test and command-line parser alike.
#pragma once

#include <span>
#include <string_view>

namespace tamrix {

// One option. All texts are constants that outlive every store.
struct KnownProperty {
  std::string_view name;                            // lower case
  std::string_view defaultValue;                    // loaded by Properties::setDefaults
  bool isSwitch = false;                            // on the command line, the bare name means "enable"
  std::span<const std::string_view> accepted = {};  // the values it takes; empty: any
  // Has no default and is refused while the store is locked: only the program itself stores it.
  bool isInternal = false;
};

// The program's options, in the order in which defaults are loaded. A store made with another table has
// other options: that is how the paths that no program option selects are reached.
std::span<const KnownProperty> programProperties();
// The options of tamrix-audit.
std::span<const KnownProperty> auditProperties();
// The options of tamrix-plan: those of tamrix and its own.
std::span<const KnownProperty> planProperties();

// A program, by the name that it is installed under, and its options.
struct ProgramTable {
  std::string_view name;
  std::span<const KnownProperty> options;
};
// All programs: one row each, walked by what makes and checks completions, man pages and usage texts.
std::span<const ProgramTable> programTables();

}  // namespace tamrix
