// The command line: -name=value and -name arguments, -help, -version.
#include <filesystem>
#include <string_view>
#include <system_error>

#include "config/ascii_case.h"
#include "config/hints.h"
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

bool isFile(const char* path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error);
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
      if (isSwitch(name) && addProperty(name, "enable") == 0) continue;
      reportRefusedArgument(name, "");
      const char* const next = i + 1 < argc ? argv[i + 1] : "VALUE";
      tellHint("-", name, false, next);
      // What a pattern may have become.
      if (const char* const match = name == "srcspec" ? next : argv[i]; isFile(match)) {
        logger->hint(msg::kPropertiesHintUnquoted, match);
      }
      return 1;
    }
    const std::string value(argument.substr(equals + 1));
    if (addProperty(name, value) != 0) {
      reportRefusedArgument(name, value);
      tellHint("-", name, true);
      return 1;
    }
  }
  return 0;
}

void Properties::reportRefusedArgument(const std::string& name, const std::string& value) const {
  logger->output(msg::kPropertiesArgRefused, name, value);
  logger->output(texts_.hint);
}

// Tells a person what may have been meant by a refused option. `dash` stands before options where it was
// given, `example` may have been meant as its value.
void Properties::tellHint(const std::string& dash, const std::string& name, bool hasValue,
                          const std::string& example) const {
  const OptionHint hint = hintFor(table_, name, hasValue);
  switch (hint.kind) {
    case OptionHint::Kind::kNone:
      return;
    case OptionHint::Kind::kOneDash:
      return logger->hint(msg::kPropertiesHintOneDash, hint.name);
    case OptionHint::Kind::kNoValue:
      return logger->hint(msg::kPropertiesHintNoValue, hint.name, example);
    case OptionHint::Kind::kOtherValue:
      return logger->hint(msg::kPropertiesHintOtherValue, dash + hint.name, hint.values);
    case OptionHint::Kind::kOtherName:
      return logger->hint(msg::kPropertiesHintOtherName, dash + hint.name);
  }
}

void Properties::printUsage() const {
  for (int id = texts_.firstUsageId; id <= texts_.lastUsageId && logger->contains(id); ++id) {
    logger->outputPlain(id);
  }
}

}  // namespace tamrix
