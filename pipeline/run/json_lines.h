// Reports as JSON lines: one object a line.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "pipeline/run/whole_file.h"

namespace tamrix {

class CopyList;
struct Extent;

// Purpose: a report that is there when it is complete, or not at all; memory does not grow with it.
// Threads: one. Operations return 0, or 1 after logging at kUrgent what can't be written.
class JsonLines {
 public:
  explicit JsonLines(std::string path);

  // Makes ready for writing. A path where something other than a file is, or a source of `list`, is refused.
  [[nodiscard]] int open(const CopyList& list);
  // Writes an object. A text in it that is no UTF-8 is shown with replacement characters, and followed by a
  // field NAME_escaped that has all of its bytes.
  [[nodiscard]] int write(const nlohmann::ordered_json& line);
  // The report is there when this returns 0.
  [[nodiscard]] int complete();

 private:
  [[nodiscard]] int fail(int error) const;

  const std::string path_;
  WholeFile file_;
};

// Every byte that is not printable ASCII, and '%', as %XX.
std::string escapedText(const std::string& text);

// Adds fields for the partition and the block where `extent` begins, if it has a position on tape.
void addPosition(nlohmann::ordered_json& line, const Extent& extent);

// Whether `path` leads to one of the sources of `list`, by path: a source behind a second name keeps that
// name's content when the first one is given to another file.
bool isSourceOf(const CopyList& list, const std::string& path);

}  // namespace tamrix
