#include "batch/batch_writer.h"

#include <unicode/utf8.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace tamrix {

namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// Whether XML can hold the text and gives it back unchanged.
bool isText(std::string_view text) {
  // A byte of a longer character is negative as a signed one.
  const auto isPlain = [](char c) { return static_cast<signed char>(c) >= ' '; };
  if (std::all_of(text.begin(), text.end(), isPlain)) return true;
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  for (std::size_t at = 0; at < text.size();) {
    UChar32 character = 0;
    U8_NEXT(bytes, at, text.size(), character);
    if (character < ' ' || character == 0xFFFE || character == 0xFFFF) return false;
  }
  return true;
}

bool hasWildcard(std::string_view text) { return text.find_first_of("*?") != std::string_view::npos; }

// A path cut at one of its slashes, which belongs to neither part.
struct Cut {
  std::string_view directory;
  std::string_view name;
};

// Cuts at the last slash before `end`. Nothing when there is none that leaves a directory.
std::optional<Cut> cutBefore(std::string_view path, std::size_t end) {
  const std::size_t slash = end == 0 ? std::string_view::npos : path.rfind('/', end - 1);
  if (slash == std::string_view::npos || slash == 0) return std::nullopt;
  return Cut{path.substr(0, slash), path.substr(slash + 1)};
}

bool canBeNamed(std::string_view name) {
  return !hasWildcard(name) && name.find_first_not_of(kBlanks) != std::string_view::npos;
}

}  // namespace

std::optional<BatchEntry> batchEntry(std::string_view source, std::string_view destination) {
  if (!isText(source) || !isText(destination)) return std::nullopt;
  std::optional<Cut> from = cutBefore(source, source.size());
  std::optional<Cut> to = cutBefore(destination, destination.size());
  if (!from || !to || to->name.empty()) return std::nullopt;
  std::optional<BatchEntry> entry;
  while (from && to && from->name == to->name && !hasWildcard(from->name)) {
    if (canBeNamed(from->name)) entry = {from->directory, from->name, to->directory, {}};
    from = cutBefore(source, from->directory.size());
    to = cutBefore(destination, to->directory.size());
  }
  if (entry) return entry;

  to = cutBefore(destination, destination.size());
  // A name that is blank counts as none, unless a directory's stands before it.
  for (from = cutBefore(source, source.size()); from; from = cutBefore(source, from->directory.size())) {
    if (canBeNamed(from->name)) return BatchEntry{from->directory, from->name, to->directory, to->name};
    if (hasWildcard(from->name)) break;
  }
  return std::nullopt;
}

int BatchWriter::begin() {
  write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<tamrixspec version=\"1.0\">\n  <data>\n");
  return error_;
}

int BatchWriter::add(const BatchEntry& entry) {
  if (entry.sourceDirectory != sourceDirectory_ || entry.destinationDirectory != destinationDirectory_) {
    endFile();
    sourceDirectory_ = entry.sourceDirectory;
    destinationDirectory_ = entry.destinationDirectory;
    write("    <file>\n");
    writeElement("      ", "srcpath", sourceDirectory_);
    writeElement("      ", "dstpath", destinationDirectory_);
  }
  if (entry.rename.empty()) {
    writeElement("      ", "sf", entry.name);
  } else {
    write("      <sf rename=\"");
    writeEscaped(entry.rename);
    write("\">");
    writeEscaped(entry.name);
    write("</sf>\n");
  }
  return error_;
}

int BatchWriter::end(std::span<const BatchParam> params) {
  endFile();
  write("  </data>\n");
  if (!params.empty()) write("  <params>\n");
  for (const BatchParam& param : params) writeElement("    ", param.name, param.value);
  if (!params.empty()) write("  </params>\n");
  write("</tamrixspec>\n");
  return error_;
}

void BatchWriter::endFile() {
  if (!sourceDirectory_.empty()) write("    </file>\n");
  sourceDirectory_.clear();
}

void BatchWriter::writeElement(std::string_view indent, std::string_view name, std::string_view text) {
  for (const std::string_view piece : {indent, std::string_view("<"), name, std::string_view(">")})
    write(piece);
  writeEscaped(text);
  for (const std::string_view piece : {std::string_view("</"), name, std::string_view(">\n")}) write(piece);
}

void BatchWriter::writeEscaped(std::string_view text) {
  for (;;) {
    const std::size_t plain = std::min(text.find_first_of("&<>\""), text.size());
    write(text.substr(0, plain));
    if (plain == text.size()) return;
    const char c = text[plain];
    write(c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : "&quot;");
    text.remove_prefix(plain + 1);
  }
}

void BatchWriter::write(std::string_view text) {
  if (error_ == 0 && std::fwrite(text.data(), 1, text.size(), &stream_) != text.size()) error_ = errno;
}

}  // namespace tamrix
