// Feeds arguments to the command line: whatever they are, each is stored as the table allows, or refused.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "config/properties.h"
#include "log/logger.h"
#include "pipeline/ring/size_text.h"

namespace {

using tamrix::KnownProperty;
using tamrix::Properties;
using tamrix::SizeText;

void require(bool holds) {
  if (!holds) std::abort();
}

// Cuts the input into arguments at NUL bytes.
std::vector<std::string> split(const char* data, std::size_t size) {
  std::vector<std::string> parts = {"tamrix"};
  for (const char* const end = data + size; data < end; data += parts.back().size() + 1) {
    parts.emplace_back(data, strnlen(data, static_cast<std::size_t>(end - data)));
  }
  return parts;
}

void checkSize(const std::string& text) {
  const SizeText size = tamrix::parseSize(text);
  if (size.status == SizeText::Status::kOk) {
    require((size.bytes < 0) <= text.starts_with('-'));
    require(text.find_first_not_of("-0123456789BKMG") == std::string::npos);
  } else {
    require(std::string_view(text).ends_with(size.offender));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static tamrix::Logger* const quiet = [] {
    auto* const made = new tamrix::Logger(-1, -1);
    if (made->LoadMessage("tamrix") != 0 || made->init(tamrix::kDebug) != 0) std::abort();
    return made;
  }();
  tamrix::logger = quiet;

  const std::vector<std::string> arguments = split(reinterpret_cast<const char*>(data), size);
  std::vector<const char*> argv;
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());

  Properties store;
  require(store.setDefaults());
  store.lock();
  const int result = store.parseArgs(static_cast<int>(argv.size()), argv.data());
  require(result == 0 || result == 1);
  // Whatever was given, the store holds the known options with values that they take.
  for (const KnownProperty& known : tamrix::programProperties()) {
    std::string value;
    require(store.getProperty(std::string(known.name), value) == 0);
    bool accepted = known.accepted.empty();
    for (const std::string_view one : known.accepted) accepted = accepted || one == value;
    require(accepted);
    if (known.name.find("size") != std::string_view::npos) checkSize(value);
  }
  store.unlock();
  require(store.updatePath("srcpath") <= 1);
  return 0;
}
