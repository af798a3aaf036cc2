// A batch file, opened and read node by node: all that knows of the XML library.
//
// Safe on any input: no network, no external document, no entity expanded into text, and the library's own
// bounds on text length (10 MB), nesting (256) and entity growth stay in force. An element with more than
// 1000 attributes is refused before the library has read all of it, because the library's time grows with the
// square of their number. The library prints nothing; its messages are kept as the reason of a failure.
#pragma once

#include <libxml/xmlreader.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tamrix {

// The node types that a batch file may hold; the numbers are the library's. nodeType() returns others too.
enum NodeType : int { kStartElement = 1, kText = 3, kWhiteSpace = 14, kEndElement = 15 };

// Counts the attributes of each start tag in the bytes of a document: the "=" between "<" and ">", outside
// quotes. In a document with comments, or in UTF-16, the count may be wrong, but not by enough to matter.
class AttributeCount {
 public:
  static constexpr std::size_t kMost = 1000;
  // Takes the next bytes. Returns false when a tag has more than kMost.
  [[nodiscard]] bool take(std::string_view bytes);

 private:
  bool inTag_ = false;
  char quote_ = 0;  // the open one
  std::size_t count_ = 0;
};

// Threads: one at a time in the process, since it borrows the library's error handlers.
// Lifetime: one pass over one file.
class XmlDocument {
 public:
  XmlDocument();
  ~XmlDocument();
  XmlDocument(const XmlDocument&) = delete;
  XmlDocument& operator=(const XmlDocument&) = delete;

  // Checks that the library is the one that the program was built for, and sets it up.
  static void setUpLibrary();
  // Returns the library's memory; it sets itself up again when needed. REQUIRES: no XmlDocument.
  static void cleanUpLibrary();

  // Opens the regular file `name`, a plain path. Returns 0, or -1: reason() tells why; nothing is logged.
  [[nodiscard]] int open(const std::string& name);

  // Goes to the next node. Returns 1, 0 at the end of a well-formed document, or the library's error result
  // (-1) for one that is not well-formed: line() and reason() tell where and why. REQUIRES: open returned 0.
  [[nodiscard]] int read();

  // The current node. REQUIRES: read returned 1; texts are valid until the next read.
  int nodeType() const;
  const char* name() const;   // "--" when it has none
  const char* value() const;  // "" when it has none
  int attributeCount() const;
  std::optional<std::string> attribute(const char* name) const;
  // Whether it is a start element that no end element follows ("<a/>").
  bool isEmptyElement() const;

  int line() const { return line_; }  // from 1; 0 when the failure has none
  const std::string& reason() const { return reason_; }

 private:
  [[nodiscard]] static int readMore(void* document, char* buffer, int size);
  template <class Error>
  static void keepError(void* document, Error* error);

  AttributeCount attributes_;
  int fd_ = -1;
  xmlTextReaderPtr reader_ = nullptr;
  int line_ = 0;
  std::string reason_;
};

}  // namespace tamrix
