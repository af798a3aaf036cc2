#include "config/properties.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "config/ascii_case.h"
#include "log/logger.h"

namespace tamrix {

Properties* properties = nullptr;

namespace {

constexpr std::size_t kMaxNameLength = 99;

// Kept: a key that is any part of this text is left out of the listing.
constexpr std::string_view kHiddenFromListing = "findoptions rateinterval copydirection checksumea";

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), toLower);
  return text;
}

}  // namespace

bool Properties::setDefaults() {
  return std::all_of(table_.begin(), table_.end(), [this](const KnownProperty& row) {
    return row.isInternal || addProperty(std::string(row.name), std::string(row.defaultValue)) == 0;
  });
}

void Properties::lock() {
  locked_ = true;
  logger->log(kDebug, msg::kPropertiesLocked);
}

void Properties::unlock() {
  locked_ = false;
  logger->log(kDebug, msg::kPropertiesUnlocked);
}

int Properties::addProperty(const std::string& name, const std::string& value) {
  logger->log(kDebug, msg::kPropertiesAdd, name, value);
  if (name.size() > kMaxNameLength) {
    // Kept: a name of exactly 99 characters passes although the text says "less than 99".
    logger->log(kUrgent, msg::kPropertiesNameTooLong, name, static_cast<std::int32_t>(kMaxNameLength));
    return 1;
  }
  const std::string key = lowerCase(name);
  if (locked_ && !entries_.contains(key)) {
    logger->log(kUrgent, msg::kPropertiesUnrecognized, key);
    return 1;
  }
  if (!isAccepted(key, value)) {
    logger->log(kUrgent, msg::kPropertiesInvalid, key, value);
    return 1;
  }
  entries_[key] = value;
  return 0;
}

bool Properties::isAccepted(const std::string& key, const std::string& value) const {
  return std::any_of(table_.begin(), table_.end(), [&](const KnownProperty& row) {
    return row.name == key && (row.accepted.empty() || std::find(row.accepted.begin(), row.accepted.end(),
                                                                 value) != row.accepted.end());
  });
}

int Properties::testProperty(const std::string& key, const std::string& value) const {
  logger->log(kDebug, msg::kPropertiesTest, key, value);
  const auto entry = entries_.find(key);
  if (entry == entries_.end()) {
    logger->log(kDebug, msg::kPropertiesTestNoEntry, key);
    return 0;
  }
  if (entry->second == value) {
    logger->log(kDebug, msg::kPropertiesTestMatch, entry->second);
    return 1;
  }
  // Kept: the text says "key" and shows the stored value.
  logger->log(kDebug, msg::kPropertiesTestNoMatch, entry->second);
  return 0;
}

int Properties::getProperty(const std::string& key, const char*& value) const {
  const auto entry = entries_.find(key);
  if (entry == entries_.end()) {
    logger->log(kDebug, msg::kPropertiesGetTextNoEntry, key);
    value = nullptr;
    return -1;
  }
  value = entry->second.c_str();
  logger->log(kDebug, msg::kPropertiesGetText, key, value);
  if (!entry->second.empty()) return 0;
  logger->log(kDebug, msg::kPropertiesGetTextEmpty);
  return -1;
}

int Properties::getProperty(const std::string& key, std::string& value) const {
  const auto entry = entries_.find(key);
  if (entry == entries_.end()) {
    logger->log(kDebug, msg::kPropertiesGetStringNoEntry, key);
    value.clear();
    return -1;
  }
  value = entry->second;
  logger->log(kDebug, msg::kPropertiesGetString, key, value);
  return 0;
}

int Properties::getProperty(const std::string& key, std::int32_t& value) const {
  const auto entry = entries_.find(key);
  value = entry == entries_.end()
              ? 0
              : static_cast<std::int32_t>(std::strtol(entry->second.c_str(), nullptr, 10));
  return entry == entries_.end() ? -1 : 0;
}

bool Properties::isSwitch(const std::string& name) const {
  return std::any_of(table_.begin(), table_.end(),
                     [&](const KnownProperty& row) { return row.name == name && row.isSwitch; });
}

void Properties::logProperties() const {
  for (const auto& [key, value] : entries_) logger->log(kDebug, msg::kPropertiesParameter, key, value);
}

void Properties::listDefaults() const {
  logger->output(msg::kPropertiesListBegin);
  for (const auto& [key, value] : entries_) {
    if (kHiddenFromListing.find(key) == std::string_view::npos) {
      logger->output(msg::kPropertiesListEntry, key, value);
    }
  }
  logger->output(msg::kPropertiesListEnd);
}

}  // namespace tamrix
