#include "log/message.h"

#include <unicode/udata.h>
#include <unicode/unistr.h>
#include <unicode/ures.h>

#include <charconv>
#include <cstring>
#include <memory>

// The catalogue package; genccode makes it from the compiled bundles.
extern "C" const char tamrix_dat[];  // NOLINT(readability-identifier-naming): the name is ICU's rule

namespace tamrix {

namespace {

struct BundleCloser {
  void operator()(UResourceBundle* bundle) const { ures_close(bundle); }
};
using Bundle = std::unique_ptr<UResourceBundle, BundleCloser>;

// Adds the string resource `entry` when its key is a message id; other keys ("start_id") are not messages.
bool addEntry(UResourceBundle* entry, std::map<int, std::string>& catalogue) {
  const char* const key = ures_getKey(entry);
  const char* const end = key + std::strlen(key);
  int id = 0;
  const auto parsed = std::from_chars(key, end, id);
  if (parsed.ec != std::errc() || parsed.ptr != end) return true;

  UErrorCode status = U_ZERO_ERROR;
  int32_t length = 0;
  const UChar* const text = ures_getString(entry, &length, &status);
  if (U_FAILURE(status)) return false;
  icu::UnicodeString(false, text, length).toUTF8String(catalogue[id]);
  return true;
}

}  // namespace

int Message::LoadMessage(const char* package) {
  catalogue_.clear();
  UErrorCode status = U_ZERO_ERROR;
  udata_setAppData(package, tamrix_dat, &status);
  if (U_FAILURE(status)) return 1;
  Bundle root(ures_open(package, nullptr, &status));
  if (U_FAILURE(status)) {
    // ICU can't use the locale that the environment names.
    status = U_ZERO_ERROR;
    root.reset(ures_open(package, "root", &status));
    if (U_FAILURE(status)) return 1;
  }
  const Bundle table(ures_getByKey(root.get(), "messages", nullptr, &status));
  if (U_FAILURE(status)) return 1;

  std::map<int, std::string> catalogue;
  Bundle entry;
  while (ures_hasNext(table.get()) != 0) {
    entry.reset(ures_getNextResource(table.get(), entry.release(), &status));
    if (U_FAILURE(status) || !addEntry(entry.get(), catalogue)) return 1;
  }
  catalogue_ = std::move(catalogue);
  return catalogue_.empty() ? 1 : 0;
}

std::string Message::text(int id) const {
  if (const char* const found = find(id)) return found;
  return "Unknown message ID: " + std::to_string(id) + " -";
}

const char* Message::find(int id) const {
  const auto found = catalogue_.find(id);
  return found == catalogue_.end() ? nullptr : found->second.c_str();
}

}  // namespace tamrix
