// Build tool: writes the completion of a program's options for bash, zsh and fish.
//
//     make_completions PROGRAM DIRECTORY
//
// Makes DIRECTORY/PROGRAM.bash, PROGRAM.zsh and PROGRAM.fish. Names, switches and accepted values come from
// the program's table of options; what the table doesn't tell is below. Ends with 1, naming the option, where
// that has no row.
#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "config/known_properties.h"

namespace {

using tamrix::KnownProperty;

enum class Value { kText, kDirectory, kFile };

// What an option is, in words free of quotes, brackets and colons, which mean something to a shell.
struct Description {
  std::string_view name;
  std::string_view text;
  Value value = Value::kText;
  std::string_view offered = {};  // values to offer where the table accepts any
};

constexpr std::array kDescriptions = {
    Description{"audit", "what to audit"},
    Description{"batchfile", "XML file of copies and options", Value::kFile},
    Description{"buffer-size", "how much is read and written at a time, at most 1GB"},
    Description{"checksum", "algorithm", Value::kText, "xxh128 modsum64"},
    Description{"checksum-update", "which checksums are stored"},
    Description{"drive", "drive for which times are reckoned"},
    Description{"dstpath", "destination directory", Value::kDirectory},
    Description{"ignore-vendor-check", "take files that are on no volume of the expected vendor"},
    Description{"interactive", "ask before a file is overwritten"},
    Description{"loglevel", "how much is logged"},
    Description{"map", "draw a map of the tape"},
    Description{"missing", "leave out what is at the destination already"},
    Description{"output", "batch file that the plan is written to", Value::kFile},
    Description{"recursive", "files in subdirectories, too"},
    Description{"report", "file that the result is written to", Value::kFile},
    Description{"require-checksum", "a file without stored checksum is an error"},
    Description{"sparse", "leave holes for blocks of zeros"},
    Description{"split", "directory for a batch file of each volume", Value::kDirectory},
    Description{"srcpath", "source directory", Value::kDirectory},
    Description{"srcspec", "quoted pattern of the names of files"},
    Description{"timer", "begin log lines with the seconds since the start"},
    Description{"total-buffer-size", "memory between reading and writing, at most 4GB"},
};

struct Option {
  std::string name;
  std::string text;
  bool isSwitch;  // also without a value
  Value value;
  std::string offered;  // values, separated by blanks
};

std::vector<Option> optionsOf(std::string_view program) {
  const auto programs = tamrix::programTables();
  const auto table = std::ranges::find(programs, program, &tamrix::ProgramTable::name);
  if (table == programs.end()) throw std::runtime_error("no program " + std::string(program));
  std::vector<Option> options;
  for (const KnownProperty& row : table->options) {
    if (row.isInternal) continue;
    const auto* const found = std::ranges::find(kDescriptions, row.name, &Description::name);
    if (found == kDescriptions.end())
      throw std::runtime_error("option has no description: " + std::string(row.name));
    std::string offered(found->offered);
    for (const std::string_view value : row.accepted)
      offered.append(offered.empty() ? "" : " ").append(value);
    options.push_back({std::string(row.name), std::string(found->text), row.isSwitch, found->value, offered});
  }
  return options;
}

// `value` is a path or none: values to choose from are given by the caller.
std::string pick(Value value, std::string_view directory, std::string_view file) {
  if (value == Value::kDirectory) return std::string(directory);
  return value == Value::kFile ? std::string(file) : "";
}

void writeBash(std::ostream& out, const std::string& program, const std::vector<Option>& options) {
  std::string function = "_" + program;
  std::ranges::replace(function, '-', '_');
  std::string words = "-help -version";
  out << "# shellcheck shell=bash disable=SC2207\n"
      << function << R"(() {
  local cur value
  _get_comp_words_by_ref -n =: cur
  value=${cur#*=}
  case $cur in
)";
  for (const Option& option : options) {
    words += " -" + option.name + (option.isSwitch ? "" : "=");
    const std::string paths = pick(option.value, "_filedir -d", "_filedir");
    if (option.offered.empty() && paths.empty()) continue;
    out << "    -" << option.name << "=*) "
        << (option.offered.empty() ? "cur=$value; " + paths
                                   : "COMPREPLY=($(compgen -W '" + option.offered + "' -- \"$value\"))")
        << " ;;\n";
  }
  out << "    *) COMPREPLY=($(compgen -W '" << words << R"(' -- "$cur"))
      if [[ ${COMPREPLY-} == *= ]]; then compopt -o nospace; fi ;;
  esac
  __ltrim_colon_completions "${value//\\}"
} &&
)"
      << "  complete -F " << function << ' ' << program << '\n';
}

void writeZsh(std::ostream& out, const std::string& program, const std::vector<Option>& options) {
  out << "#compdef " << program << "\n_arguments \\\n";
  for (const Option& option : options) {
    const std::string action =
        option.offered.empty() ? pick(option.value, "_directories", "_files") : "(" + option.offered + ")";
    // A switch is not offered with a value: zsh would leave the "=" on the line.
    out << "  '-" << option.name << (option.isSwitch ? "[" : "=-[") << option.text << ']';
    if (!option.isSwitch) out << ':' << option.name << ':' << action;
    out << "' \\\n";
  }
  out << "  '-help[print the usage]' '-version[print the version]'\n";
}

void writeFish(std::ostream& out, const std::string& program, const std::vector<Option>& options) {
  std::string function = "__" + program + "_complete";
  std::ranges::replace(function, '-', '_');
  out << "function " << function << R"(
    set -l word (commandline -ct)
    set -l value (string replace -r '^[^=]*=' '' -- $word)
    switch $word
)";
  std::string words = "-help 'print the usage' -version 'print the version'";
  for (const Option& option : options) {
    const std::string dashed = "-" + option.name;
    words += " \\\n                " + dashed + (option.isSwitch ? " '" : "= '") + option.text + "'";
    const std::string paths =
        pick(option.value, "__fish_complete_directories $value ''", "__fish_complete_path $value");
    if (option.offered.empty() && paths.empty()) continue;
    out << "        case '" << dashed << "=*'\n            ";
    if (option.offered.empty()) {
      out << paths << " | string replace -r '^' -- " << dashed << "=\n";
    } else {
      out << "printf '" << dashed << "=%s\\n' " << option.offered << '\n';
    }
  }
  out << "        case '*'\n            printf '%s\\t%s\\n' " << words << "\n    end\nend\ncomplete -c "
      << program << " -f -a '(" << function << ")'\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: make_completions PROGRAM DIRECTORY\n";
    return 2;
  }
  const std::string program = argv[1];
  try {
    const std::vector<Option> options = optionsOf(program);
    using Write = void (*)(std::ostream&, const std::string&, const std::vector<Option>&);
    for (const auto& [shell, write] : std::array<std::pair<const char*, Write>, 3>{
             {{"bash", writeBash}, {"zsh", writeZsh}, {"fish", writeFish}}}) {
      std::ofstream out(std::string(argv[2]) + "/" + program + "." + shell);
      write(out, program, options);
      out.close();
      if (!out) throw std::runtime_error("cannot write to " + std::string(argv[2]));
    }
  } catch (const std::exception& error) {
    std::cerr << "make_completions: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
