// A property store with more options than the program has: those that select audits, checksums and the buffer
// file.
#pragma once

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "config/properties.h"

namespace tamrix::test {

using Settings = std::vector<std::pair<const char*, std::string>>;

// Installs itself as the program's store, defaults loaded; the wider options are not set. REQUIRES: a logger
// that outlives it. One at a time.
class WideProperties {
 public:
  explicit WideProperties(const Settings& settings = {}) : before_(tamrix::properties) {
    tamrix::properties = &store_;
    if (!store_.setDefaults()) std::abort();
    for (const auto& [key, value] : settings) set(key, value);
  }
  ~WideProperties() { tamrix::properties = before_; }
  WideProperties(const WideProperties&) = delete;
  WideProperties& operator=(const WideProperties&) = delete;

  void set(const char* key, const std::string& value) {
    if (store_.addProperty(key, value) != 0) std::abort();
  }

 private:
  static std::vector<KnownProperty> wideTable() {
    std::vector<KnownProperty> table(programProperties().begin(), programProperties().end());
    for (const char* wider : {"audit", "checksum", "checksum-update", "verify", "checksumea", "buffer-file",
                              "compare-when-listing"}) {
      table.push_back({wider, ""});
    }
    return table;
  }

  const std::vector<KnownProperty> table_ = wideTable();
  Properties store_{table_};
  Properties* const before_;
};

}  // namespace tamrix::test
