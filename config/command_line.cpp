// The command line: -name=value and -name arguments, -help, -version.
#include <string_view>

#include "config/ascii_case.h"
#include "config/properties.h"
#include "config/version.h"
#include "log/logger.h"

namespace tamrix {

namespace {

// Whether argument and option word agree, case aside, in all characters of the shorter one.
// Kept: -h, -helpme and a lone dash all print the usage text, -v and -versions the version.
bool matchesOption(std::string_view argument, std::string_view option) {
  for (std::size_t i = 0; i < argument.size() && i < option.size(); ++i) {
    if (toLower(argument[i]) != toLower(option[i])) return false;
  }
  return true;
}

}  // namespace

int Properties::parseArgs(int argc, const char* const* argv) {
  if (argc == 1) {
    printUsage();
    return 1;
  }
  for (int i = 1; i < argc; ++i) {
    std::string_view argument = argv[i];
    // A second dash stays part of the name; no option has one.
    if (argument.starts_with('-')) argument.remove_prefix(1);
    if (matchesOption(argument, "help")) {
      printUsage();
      return 1;
    }
    if (matchesOption(argument, "version")) {
      logger->output(msg::kMainVersion, kVersion, kRevision);
      return 1;
    }
    logger->log(kDebug, msg::kPropertiesParseArgs);
    const std::size_t equals = argument.find('=');
    const std::string name(argument.substr(0, equals));
    if (equals == std::string_view::npos) {
      if (!isSwitch(name) || addProperty(name, "enable") != 0) return reportRefusedArgument(name, "");
    } else {
      const std::string value(argument.substr(equals + 1));
      if (addProperty(name, value) != 0) return reportRefusedArgument(name, value);
    }
  }
  return 0;
}

int Properties::reportRefusedArgument(const std::string& name, const std::string& value) const {
  logger->output(msg::kPropertiesArgRefused, name, value);
  logger->output(texts_.hint);
  return 1;
}

void Properties::printUsage() const {
  for (int id = texts_.firstUsageId; id <= texts_.lastUsageId && logger->contains(id); ++id) {
    logger->outputPlain(id);
  }
}

}  // namespace tamrix
