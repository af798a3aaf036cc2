// The open elements of the batch file being read, and the checks that a start element meets there.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace tamrix {

enum class Attributes { kAllowed, kForbidden };

// Where an element may stand. Both lists are looked for among all open elements, not only the innermost,
// and in the order given; unused places are null.
struct ElementRule {
  std::array<const char*, 3> needed;  // each must be open
  std::array<const char*, 2> barred;  // none may be open; an element bars itself by its own name
  Attributes attributes;
};

// Threads: one. Lifetime: one pass over one file.
class ElementStack {
 public:
  void clear() { names_.clear(); }
  void push(const char* name) { names_.emplace_back(name); }
  bool empty() const { return names_.empty(); }
  bool contains(const char* name) const;
  // The innermost open element; "" when none is open.
  const char* innermost() const { return names_.empty() ? "" : names_.back().c_str(); }

  // Whether the start element `name` with `attributeCount` attributes keeps `rule`. The first breach is
  // logged.
  [[nodiscard]] bool admits(const char* name, const ElementRule& rule, int attributeCount) const;

  // Takes off the innermost element. False, logged, when it is not `name`.
  [[nodiscard]] bool pop(const char* name);

 private:
  std::vector<std::string> names_;  // innermost last
};

}  // namespace tamrix
