// A property store with more options than the program has: those that select audits, checksums and the buffer
// file.
#pragma once

#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config/properties.h"

namespace tamrix::test {

using Settings = std::vector<std::pair<const char*, std::string>>;

// Installs itself as the program's store, defaults loaded; the wider options are not set. REQUIRES: a logger
// that outlives it. One at a time.
class WideProperties {
 public:
  // `without`: an option that this store is not to know.
  explicit WideProperties(const Settings& settings = {}, std::string_view without = "")
      : table_(tableWithout(without)), store_(table_), before_(tamrix::properties) {
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
  static std::vector<KnownProperty> tableWithout(std::string_view name) {
    std::vector<KnownProperty> table(programProperties().begin(), programProperties().end());
    for (const char* wider :
         {"audit", "checksum", "checksum-update", "verify", "checksumea", "buffer-file"}) {
      table.push_back({wider, ""});
    }
    std::erase_if(table, [&](const KnownProperty& row) { return row.name == name; });
    return table;
  }

  const std::vector<KnownProperty> table_;
  Properties store_;
  Properties* const before_;
};

}  // namespace tamrix::test
