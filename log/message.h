// The message catalogue: every text that tamrix prints, by numeric id.
//
// The texts are an ICU resource bundle in an ICU common-data package ("CmnD"), compiled from log/catalogue/
// and linked into the program as the data symbol tamrix_dat.
#pragma once

#include <map>
#include <string>

namespace tamrix {

// Purpose: turns message ids into texts. Threads: load on one thread, before others read; then any thread.
class Message {
 public:
  // Reads table "messages" of the linked-in bundle `package` ("tamrix") into the catalogue.
  // Returns 0, or 1 when the bundle can't be opened or read; the catalogue is then empty.
  [[nodiscard]] int LoadMessage(const char* package);

  // The text of message `id`, or "Unknown message ID: %d -" with the id filled in.
  std::string text(int id) const;

  bool contains(int id) const { return catalogue_.contains(id); }

 protected:
  // The text of message `id`, or null. Valid until the next LoadMessage.
  const char* find(int id) const;

 private:
  std::map<int, std::string> catalogue_;
};

}  // namespace tamrix
