// A property store for tests: installs itself as the program's, with the program's options and defaults.
#pragma once

#include <cstdlib>
#include <initializer_list>
#include <string>
#include <utility>

#include "config/properties.h"

namespace tamrix::test {

// REQUIRES: a CapturedLog that outlives it. One at a time.
class TestProperties {
 public:
  explicit TestProperties(std::initializer_list<std::pair<const char*, std::string>> settings = {})
      : before_(tamrix::properties) {
    tamrix::properties = &store_;
    if (!store_.setDefaults()) std::abort();
    for (const auto& [key, value] : settings) set(key, value);
  }
  ~TestProperties() { tamrix::properties = before_; }
  TestProperties(const TestProperties&) = delete;
  TestProperties& operator=(const TestProperties&) = delete;

  void set(const char* key, const std::string& value) {
    if (store_.addProperty(key, value) != 0) std::abort();
  }
  Properties& store() { return store_; }

 private:
  Properties store_;
  Properties* const before_;
};

}  // namespace tamrix::test
