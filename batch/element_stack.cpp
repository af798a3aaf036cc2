#include "batch/element_stack.h"

#include <algorithm>

#include "log/logger.h"

namespace tamrix {

bool ElementStack::contains(const char* name) const {
  return std::find(names_.begin(), names_.end(), name) != names_.end();
}

bool ElementStack::admits(const char* name, const ElementRule& rule, int attributeCount) const {
  for (const char* needed : rule.needed) {
    if (needed != nullptr && !contains(needed)) {
      logger->log(kUrgent, msg::kBatchElementWithout, name, needed);
      return false;
    }
  }
  for (const char* barred : rule.barred) {
    if (barred != nullptr && contains(barred)) {
      logger->log(kUrgent, msg::kBatchElementUnder, name, barred);
      return false;
    }
  }
  if (rule.attributes == Attributes::kForbidden && attributeCount != 0) {
    logger->log(kUrgent, msg::kBatchAttributesForbidden, name);
    return false;
  }
  return true;
}

bool ElementStack::pop(const char* name) {
  if (innermost() != std::string_view(name)) {
    logger->log(kUrgent, msg::kBatchEndMismatch, name, innermost());
    return false;
  }
  names_.pop_back();
  return true;
}

}  // namespace tamrix
