// Build tool: reads the message catalogue's resource source and writes the header of typed message ids.
//
//     make_message_ids root.txt message_ids.h
//
// Refuses, naming the line: unsorted or repeated ids, ids outside their component's block, a missing or
// repeated constant name, and printf conversions that the logger's argument types don't cover. Text is
// checked here because it is a format string at run time, where no compiler looks at it any more.
#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Block {
  int first;
  int last;
};

// A component's block runs to the next component's first id; ids between blocks in use stay unassigned.
constexpr std::array kBlocks = {
    Block{30000, 30019},  // program entry
    Block{30020, 30039},  // logger
    Block{30040, 30079},  // module manager
    Block{30080, 30199},  // module bases
    Block{30200, 30259},  // property store and parsing
    Block{30260, 30339},  // buffer pool and ring
    Block{30340, 30499},  // reader side
    Block{30500, 30579},  // writer
    Block{30580, 30599},  // audit
    Block{30600, 30629},  // checksum stage
    Block{30630, 30649},  // sparse stage
    Block{30650, 30699},  // batch file reader
    Block{30700, 30749},  // plan
    Block{30750, 30779},  // extended-attribute access
    Block{30780, 30799},  // volume checks
    Block{30800, 30899},  // usage texts of tamrix-audit and tamrix-plan
    Block{30900, 30999},  // usage text
};

struct Conversion {
  std::string_view spelling;
  std::string_view type;  // the argument type in the typed id; see log/message_id.h
};

constexpr std::array kConversions = {
    Conversion{"%s", "Text"},
    Conversion{"%c", "char"},
    Conversion{"%d", "std::int32_t"},
    Conversion{"%ld", "long"},
    Conversion{"%lu", "unsigned long"},
    Conversion{"%lld", "long long"},
    Conversion{"%llu", "unsigned long long"},
    Conversion{"%%", ""},
};

struct Message {
  int id;
  std::string name;
  std::vector<std::string_view> arguments;
};

// The argument types that a text's conversions ask for; nothing when one of them is not covered.
std::optional<std::vector<std::string_view>> argumentTypes(std::string_view text) {
  std::vector<std::string_view> types;
  for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at)) {
    const auto* const found =
        std::find_if(kConversions.begin(), kConversions.end(),
                     [&](const Conversion& c) { return text.substr(at).starts_with(c.spelling); });
    if (found == kConversions.end()) return std::nullopt;
    if (!found->type.empty()) types.push_back(found->type);
    at += found->spelling.size();
  }
  return types;
}

class CatalogueReader {
 public:
  // Returns false after naming the first line that breaks a rule.
  bool read(std::istream& in) {
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
      const std::string fault = readLine(line);
      if (!fault.empty()) {
        std::cerr << "make_message_ids: line " << number << ": " << fault << ": " << line << '\n';
        return false;
      }
    }
    return true;
  }

  const std::vector<Message>& messages() const { return messages_; }

 private:
  // What is wrong with the line, empty when nothing is.
  std::string readLine(const std::string& line) {
    static const std::regex kLooksLikeMessage(R"(^\s*\d+\s*\{.*)");
    static const std::regex kMessage(R"re(^\s*(\d+) \{ "(.*)" \} // (k[A-Z]\w*)$)re");
    if (!std::regex_match(line, kLooksLikeMessage)) return "";
    std::smatch parts;
    if (!std::regex_match(line, parts, kMessage)) return "not of the form 30000 { \"text\" } // kName";

    const int id = std::stoi(parts[1]);
    const std::string text = parts[2];
    if (!messages_.empty() && id <= messages_.back().id) return "id is not above the one before it";
    if (std::none_of(kBlocks.begin(), kBlocks.end(),
                     [&](const Block& b) { return b.first <= id && id <= b.last; })) {
      return "id is outside every component's block";
    }
    if (!names_.insert(parts[3]).second) return "constant name is used twice";
    const auto types = argumentTypes(text);
    if (!types) return "conversion is not one that the logger takes";
    messages_.push_back({id, parts[3], *types});
    return "";
  }

  std::vector<Message> messages_;
  std::set<std::string> names_;
};

std::string headerText(const std::vector<Message>& messages) {
  std::ostringstream out;
  out << "// Made by make_message_ids from the message catalogue; edit the catalogue, not this file.\n"
         "#pragma once\n\n#include <cstdint>\n\n#include \"log/message_id.h\"\n\n"
         "namespace tamrix::msg {\n\n";
  for (const Message& message : messages) {
    out << "inline constexpr MessageId<";
    for (std::size_t i = 0; i < message.arguments.size(); ++i) {
      out << (i == 0 ? "" : ", ") << message.arguments[i];
    }
    out << "> " << message.name << "{" << message.id << "};\n";
  }
  out << "\n}  // namespace tamrix::msg\n";
  return out.str();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: make_message_ids CATALOGUE HEADER\n";
    return 2;
  }
  std::ifstream in(argv[1]);
  if (!in) {
    std::cerr << "make_message_ids: cannot open " << argv[1] << '\n';
    return 1;
  }
  CatalogueReader reader;
  if (!reader.read(in)) return 1;
  std::ofstream out(argv[2]);
  out << headerText(reader.messages());
  out.close();
  if (!out) {
    std::cerr << "make_message_ids: cannot write " << argv[2] << '\n';
    std::remove(argv[2]);
    return 1;
  }
  return 0;
}
