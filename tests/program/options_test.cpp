// What is told of options, against the tables of options.
#include <fstream>
#include <regex>
#include <sstream>

#include "config/known_properties.h"
#include "tests/program/copy_scene.h"

namespace tamrix {
namespace {

// A text that tells of options: `head` matches the line that an option's paragraph begins with, the name
// being its first group, and `end` the line behind the last paragraph.
struct Document {
  std::string name;
  std::string text;
  std::string head;
  std::string end;
  std::set<std::string> others;  // names that are no options of the table
  std::set<std::string> hidden;  // Kept: options and values that the usage text leaves out
};

std::string readFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(TAMRIX_SOURCE_DIR "/" + path).rdbuf();
  return text.str();
}

// Paragraphs by option, without blanks.
std::map<std::string, std::string> paragraphs(const Document& document) {
  const std::regex head(document.head);
  const std::regex end(document.end);
  std::map<std::string, std::string> found;
  std::string* paragraph = nullptr;
  std::istringstream lines(document.text);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_search(line, match, head)) {
      paragraph = &found[match[1]];
    } else if (std::regex_search(line, end)) {
      paragraph = nullptr;
    }
    std::erase(line, ' ');
    if (paragraph != nullptr) *paragraph += line;
  }
  return found;
}

TEST(Options, documentsTellOfEachOptionItsValuesAndItsDefault) {
  for (const ProgramTable& program : programTables()) {
    const std::string name(program.name);
    std::set<std::string> untold;
    if (name == "tamrix") untold = {"timer", "ignore-vendor-check", "PROGRESS"};
    const std::string usage = runProgram({"-help"}, {.program = TAMRIX_PROGRAM_DIR "/" + name}).out;
    std::vector<Document> documents = {
        {name + " -help", usage, "^-([a-z-]+)", "^$", {"help", "version"}, untold},
        {name + ".1",
         readFile("packaging/man/" + name + ".1"),
         "^\\.It Fl ([a-z-]+)",
         "^\\.El",
         {"help", "version"},
         {}}};
    if (name == "tamrix")
      documents.push_back({"README.md", readFile("README.md"), "^\\| `-([a-z-]+)", "^$", {}, {}});
    for (const Document& document : documents) {
      const std::map<std::string, std::string> told = paragraphs(document);
      std::set<std::string> expected = document.others;
      for (const KnownProperty& option : program.options) {
        const std::string key(option.name);
        if (option.isInternal || document.hidden.contains(key)) continue;
        expected.insert(key);
        if (option.isSwitch || !told.contains(key)) continue;
        std::vector<std::string_view> values(option.accepted.begin(), option.accepted.end());
        values.push_back(option.defaultValue);
        for (const std::string_view value : values) {
          if (document.hidden.contains(std::string(value))) continue;
          EXPECT_NE(told.at(key).find(value), std::string::npos)
              << document.name << " -" << key << ' ' << value;
        }
      }
      std::set<std::string> names;
      for (const auto& [key, paragraph] : told) names.insert(key);
      EXPECT_EQ(names, expected) << document.name;
    }
  }
}

}  // namespace
}  // namespace tamrix
