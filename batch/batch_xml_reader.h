// The batch file: options and copy requests in one XML document.
//
//     <tamrixspec version="1.0">
//       <params>  one element per option, the element's name is the option's   </params>
//       <data>
//         <file>  one srcpath, one dstpath, any number of srcspec and sf       </file>
//       </data>
//     </tamrixspec>
//
// Two passes read it, each in one go and each on its own: the parameter pass hands out the options, the data
// pass the pairs. A pass checks what it cares about and refuses the whole file at the first breach; both
// stop at malformed XML. docs/batch-files.md is the user's side of this, docs/tamrixspec.rng the schema.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "batch/batch_pair.h"
#include "batch/element_stack.h"
#include "log/message_id.h"

namespace tamrix {

class XmlDocument;

// Purpose: reads one batch file.
// Threads: one, and no other user of the XML library at the same time.
// Lifetime: any. The file is open during a pass only; a pass keeps no more than one file element beside what
// it hands out.
class BatchXmlReader {
 public:
  // What a pass that was stopped returns.
  static constexpr int kStopped = 1;

  // `fileName` is a plain path of any length; nothing is opened yet. `isStopped`, if there is one, is asked
  // at each node whether to stop there.
  explicit BatchXmlReader(std::string fileName, std::function<bool()> isStopped = {});
  // Returns the XML library's memory.
  ~BatchXmlReader();
  BatchXmlReader(const BatchXmlReader&) = delete;
  BatchXmlReader& operator=(const BatchXmlReader&) = delete;

  // The data pass: appends the pairs in document order, sources with their wildcards unexpanded. Returns 0,
  // -1 when the file can't be opened, is malformed or breaks a rule: the reason is logged at kUrgent, or
  // kStopped, unlogged. Pairs of the file elements before it stay appended.
  [[nodiscard]] int getFileListInBatch(std::vector<BatchPair>& pairs);

  // The parameter pass: appends the options in document order. Returns and logs as the data pass.
  [[nodiscard]] int getFileListInBatch(std::vector<BatchParam>& params);

  // The root's version, unjudged; empty until a pass has read the root.
  std::string version() const { return version_; }

 private:
  struct Element;  // an element's rule and handlers, by name
  struct SourceName {
    std::string source;
    std::string destination;
    SourceKind kind;
  };

  static const Element* dataElement(const char* name);
  static const Element* paramElement(const char* name);

  // Reads the file and hands each node to `step`, until its end or the first step that returns false.
  template <class Item>
  [[nodiscard]] int runPass(std::vector<Item>& items,
                            bool (BatchXmlReader::*step)(const XmlDocument&, std::vector<Item>&),
                            MessageId<Text> openFailed, MessageId<Text> parseFailed);

  // The step of each pass: true to go on, false, logged, to refuse the file.
  [[nodiscard]] bool processNode(const XmlDocument& document, std::vector<BatchPair>& pairs);
  [[nodiscard]] bool processPropertyNode(const XmlDocument& document, std::vector<BatchParam>& params);

  // Handlers; results as for the steps.
  [[nodiscard]] bool startElement(const XmlDocument& document, const Element& element);
  [[nodiscard]] bool dataText(const char* text);
  [[nodiscard]] bool dataEnd(const char* name, std::vector<BatchPair>& pairs);
  [[nodiscard]] bool paramEnd(const char* name);
  [[nodiscard]] bool enterRoot(const XmlDocument& document);
  [[nodiscard]] bool enterFile(const XmlDocument& document);
  [[nodiscard]] bool enterSf(const XmlDocument& document);
  [[nodiscard]] bool takeSrcpath(const char* text);
  [[nodiscard]] bool takeDstpath(const char* text);
  [[nodiscard]] bool takeSrcspec(const char* text);
  [[nodiscard]] bool takeSf(const char* text);
  [[nodiscard]] bool endFile(std::vector<BatchPair>& pairs) const;  // false, unlogged, after a stop, too

  bool isStopped() const { return isStopped_ && isStopped_(); }

  const std::string fileName_;
  const std::function<bool()> isStopped_;
  std::string version_;
  ElementStack open_;
  // The current file element; an empty string is one not given yet.
  std::string sourceDirectory_;
  std::string destinationDirectory_;
  std::vector<SourceName> names_;  // of srcspec and sf, in document order
  std::string rename_;             // of the current sf
};

}  // namespace tamrix
