#include "pipeline/run/json_lines.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>
#include <utility>

#include "log/logger.h"
#include "reader/list/copy_list.h"
#include "reader/record/extent.h"

namespace tamrix {

namespace {

using Json = nlohmann::ordered_json;

bool isUtf8(const Json& text) {
  try {
    (void)text.dump();
    return true;
  } catch (const Json::type_error&) {
    return false;
  }
}

Json withEscapes(const Json& line) {
  if (!line.is_structured()) return line;
  Json whole = line.is_array() ? Json::array() : Json::object();
  for (const auto& [name, value] : line.items()) {
    if (line.is_array()) {
      whole.push_back(withEscapes(value));
      continue;
    }
    whole[name] = withEscapes(value);
    if (value.is_string() && !isUtf8(value)) whole[name + "_escaped"] = escapedText(value.get<std::string>());
  }
  return whole;
}

std::string textOf(const Json& line) {
  try {
    return line.dump();
  } catch (const Json::type_error&) {
    return withEscapes(line).dump(-1, ' ', false, Json::error_handler_t::replace);
  }
}

}  // namespace

std::string escapedText(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > ' ' && byte < 0x7F && c != '%') {
      result += c;
    } else {
      result += {'%', "0123456789ABCDEF"[byte >> 4U], "0123456789ABCDEF"[byte & 0xFU]};
    }
  }
  return result;
}

void addPosition(Json& line, const Extent& extent) {
  if (extent.partition == Extent::kNoPartition) return;
  line["partition"] = escapedText(std::string(1, static_cast<char>(extent.partition)));
  line["block"] = extent.startBlock;
}

bool isSourceOf(const CopyList& list, const std::string& path) {
  char* const real = realpath(path.c_str(), nullptr);
  if (real == nullptr) return false;
  const std::string target = real;
  std::free(real);
  return std::any_of(list.extents().begin(), list.extents().end(), [&](const Extent* extent) {
    return extent->file->srcPath == target || extent->file->srcPath == path;
  });
}

JsonLines::JsonLines(std::string path) : path_(std::move(path)) {}

int JsonLines::open(const CopyList& list) {
  if (const int error = file_.open(path_); error != 0) return fail(error);
  return isSourceOf(list, path_) ? fail(EEXIST) : 0;
}

int JsonLines::write(const Json& line) {
  const std::string text = textOf(line) + "\n";
  if (std::fwrite(text.data(), 1, text.size(), &file_.stream()) == text.size()) return 0;
  return fail(errno);
}

int JsonLines::complete() {
  const int error = file_.complete();
  return error == 0 ? 0 : fail(error);
}

int JsonLines::fail(int error) const {
  logger->log(kUrgent, msg::kManagerReportFailed, path_, std::strerror(error));
  return 1;
}

}  // namespace tamrix
