// The one configuration store of a run: named text values, defaults first, then whatever the command line and
// a batch file's parameters set.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>

#include "config/known_properties.h"
#include "log/message_ids.h"

namespace tamrix {

// The texts by which the command lines of programs differ; the default is tamrix's.
struct ProgramTexts {
  int firstUsageId =
      msg::kUsage00.number;  // the usage text ends before the first id that the catalogue lacks
  int lastUsageId = 30999;
  MessageId<> hint = msg::kPropertiesArgHint;         // follows a refused argument
  MessageId<> paramHint = msg::kPropertiesParamHint;  // follows a refused parameter of a batch file
};

// Purpose: holds every option of a run and decides which options exist at all: only keys of the table handed
// to the constructor can ever be stored. Keys are lower case; values are kept as given.
// Threads: written by the main thread before the stage threads start; then read from any thread. No lock.
// Lifetime: the whole run; `properties` points at it.
//
// Every operation traces itself at kDebug. Results are 0 for success, 1 for a refusal (logged at kUrgent),
// -1 for a look-up that finds nothing.
class Properties {
 public:
  // The table must outlive the store.
  explicit Properties(std::span<const KnownProperty> table = programProperties(), ProgramTexts texts = {})
      : table_(table), texts_(texts) {}

  // Stores every default, in table order. Returns false at the first one that is refused.
  [[nodiscard]] bool setDefaults();

  // While locked, only keys that are present may be written.
  void lock();
  void unlock();

  // Stores `value` under `name` in lower case. Refused: a name of more than 99 characters, a new key while
  // locked, a key or value that the table does not accept. A refusal changes nothing.
  [[nodiscard]] int addProperty(const std::string& name, const std::string& value);

  // 1 when `key` (as given, no lower-casing) is present with exactly `value`, else 0.
  [[nodiscard]] int testProperty(const std::string& key, const std::string& value) const;

  // Points `value` at the stored text, valid until that entry is next written. Returns -1 when the key is
  // absent (`value` is null) and also when the text is empty (`value` points at it).
  [[nodiscard]] int getProperty(const std::string& key, const char*& value) const;
  // Copies the stored text, also an empty one. Returns -1 when the key is absent (`value` is empty).
  // Kept: the two forms differ on empty values; the entry relies on finding the empty "batchfile".
  [[nodiscard]] int getProperty(const std::string& key, std::string& value) const;
  // The stored text's leading base-10 integer, 0 if it has none. Returns -1 (and 0) when the key is absent.
  [[nodiscard]] int getProperty(const std::string& key, std::int32_t& value) const;

  // Whether there is an entry for `key`. Traces nothing.
  bool isKnown(const std::string& key) const { return entries_.contains(key); }

  // Whether the option `name` (case-sensitive) may be given without a value.
  bool isSwitch(const std::string& name) const;

  // Logs every entry at kDebug, in key order.
  void logProperties() const;
  // Prints every entry as plain output, in key order, but for keys that are part of a fixed text.
  void listDefaults() const;

  // Stores the arguments after the program name: -name=value, or -name for a switch; the dash is optional.
  // Returns 0 when all were stored; 1 when the run must end: a refused argument (reported), no argument at
  // all, -help or -version (printed). What was stored before a refusal stays.
  [[nodiscard]] int parseArgs(int argc, const char* const* argv);

  // Stores the parameters of the batch file `fileName`; an empty name is no batch file and returns 0.
  // Returns 1, having logged why, when the file can't be read or a parameter is refused; parameters before
  // the refused one stay stored. Returns 1, unlogged, when `isStopped`, asked at each element, says so.
  // `isConfig` is only traced.
  [[nodiscard]] int parseFile(const char* fileName, bool isConfig, std::function<bool()> isStopped = {});

  // Makes the path stored under `key` ("srcpath", "dstpath") absolute; see paths.cpp for the rules.
  // Returns 1, having logged why, when the directory that it is relative to is not known.
  [[nodiscard]] int updatePath(const char* key);

  // Prints the program's usage text.
  void printUsage() const;

 private:
  bool isAccepted(const std::string& key, const std::string& value) const;
  void reportRefusedArgument(const std::string& name, const std::string& value) const;
  void tellHint(const std::string& dash, const std::string& name, bool hasValue,
                const std::string& example = "") const;

  const std::span<const KnownProperty> table_;
  const ProgramTexts texts_;
  std::map<std::string, std::string> entries_;
  bool locked_ = false;
};

// The program's store; set by the entry before anything reads it.
extern Properties* properties;

}  // namespace tamrix
