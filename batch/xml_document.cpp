#include "batch/xml_document.h"

#include <fcntl.h>
#include <libxml/parser.h>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tamrix {

namespace {

void printNothing(void* /*context*/, const char* /*format*/, ...) {}

const char* chars(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

}  // namespace

XmlDocument::XmlDocument() {
  // Handlers of the library, not of one reader: some errors (reading, memory) belong to no reader.
  xmlSetStructuredErrorFunc(this, keepError);
  xmlSetGenericErrorFunc(nullptr, printNothing);
}

XmlDocument::~XmlDocument() {
  xmlFreeTextReader(reader_);
  xmlSetStructuredErrorFunc(nullptr, nullptr);
  xmlSetGenericErrorFunc(nullptr, nullptr);
  if (fd_ >= 0) close(fd_);
}

void XmlDocument::setUpLibrary() {
  const XmlDocument quiet;
  xmlCheckVersion(LIBXML_VERSION);
}

void XmlDocument::cleanUpLibrary() { xmlCleanupParser(); }

int XmlDocument::open(const std::string& name) {
  // The library takes a name for a URI: "http:" would be fetched, "%20" decoded, "-" be standard input. So
  // the file is opened here. O_NONBLOCK: a FIFO without a writer must not hang; it is refused below, as it
  // could not be read twice (each file is, once for the options and once for the pairs).
  fd_ = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  struct stat status = {};
  if (fd_ < 0 || fstat(fd_, &status) != 0) {
    reason_ = std::strerror(errno);
    return -1;
  }
  if (!S_ISREG(status.st_mode)) {
    reason_ = S_ISDIR(status.st_mode) ? std::strerror(EISDIR) : "Not a regular file";
    return -1;
  }
  reader_ = xmlReaderForIO(readMore, nullptr, this, nullptr, nullptr, XML_PARSE_NONET);
  if (reader_ == nullptr) {
    if (reason_.empty()) reason_ = std::strerror(ENOMEM);
    return -1;
  }
  return 0;
}

bool AttributeCount::take(std::string_view bytes) {
  for (const char c : bytes) {
    if (quote_ != 0) {
      if (c == quote_) quote_ = 0;
    } else if (c == '<') {
      inTag_ = true;
      count_ = 0;
    } else if (!inTag_) {
      continue;
    } else if (c == '>') {
      inTag_ = false;
    } else if (c == '"' || c == '\'') {
      quote_ = c;
    } else if (c == '=' && ++count_ > kMost) {
      return false;
    }
  }
  return true;
}

int XmlDocument::readMore(void* document, char* buffer, int size) {
  auto* self = static_cast<XmlDocument*>(document);
  const ssize_t n = ::read(self->fd_, buffer, static_cast<std::size_t>(size));
  if (n < 0) {
    self->reason_ = std::strerror(errno);
    return -1;
  }
  if (self->attributes_.take({buffer, static_cast<std::size_t>(n)})) return static_cast<int>(n);
  self->reason_ = "An element has more than 1000 attributes";
  return -1;
}

int XmlDocument::read() { return xmlTextReaderRead(reader_); }

int XmlDocument::nodeType() const { return xmlTextReaderNodeType(reader_); }

const char* XmlDocument::name() const {
  const xmlChar* name = xmlTextReaderConstName(reader_);
  return name != nullptr ? chars(name) : "--";
}

const char* XmlDocument::value() const {
  const xmlChar* value = xmlTextReaderConstValue(reader_);
  return value != nullptr ? chars(value) : "";
}

int XmlDocument::attributeCount() const { return xmlTextReaderAttributeCount(reader_); }

std::optional<std::string> XmlDocument::attribute(const char* name) const {
  xmlChar* value = xmlTextReaderGetAttribute(reader_, reinterpret_cast<const xmlChar*>(name));
  if (value == nullptr) return std::nullopt;
  std::string copy = chars(value);
  xmlFree(value);
  return copy;
}

bool XmlDocument::isEmptyElement() const { return xmlTextReaderIsEmptyElement(reader_) == 1; }

// Error is xmlError or, in newer versions of the library, const xmlError.
template <class Error>
void XmlDocument::keepError(void* document, Error* error) {
  auto* self = static_cast<XmlDocument*>(document);
  // The first error is the reason, others follow from it. Namespaces mean nothing in a batch file.
  if (error->level == XML_ERR_WARNING || error->domain == XML_FROM_NAMESPACE || !self->reason_.empty())
    return;
  self->line_ = error->line;
  self->reason_ = error->message != nullptr ? error->message : "";
  while (!self->reason_.empty() && self->reason_.back() == '\n') self->reason_.pop_back();
  std::replace(self->reason_.begin(), self->reason_.end(), '\n', ' ');
}

}  // namespace tamrix
