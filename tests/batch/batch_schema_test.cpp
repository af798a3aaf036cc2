// The schema and the documentation say what the reader does.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/relaxng.h>

#include <map>
#include <memory>
#include <set>

#include "tests/batch/samples.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"

namespace tamrix {
namespace {

using test::kAccepted;
using test::kExamples;
using test::kRefused;
using test::namesIn;

// The schema, loaded once; the library's own messages are dropped.
class Schema {
 public:
  Schema() {
    xmlSetStructuredErrorFunc(nullptr, ignore);
    xmlRelaxNGParserCtxtPtr parser = xmlRelaxNGNewParserCtxt(TAMRIX_SOURCE_DIR "/docs/tamrixspec.rng");
    schema_ = xmlRelaxNGParse(parser);
    xmlRelaxNGFreeParserCtxt(parser);
  }
  ~Schema() {
    xmlRelaxNGFree(schema_);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    xmlCleanupParser();
  }
  Schema(const Schema&) = delete;
  Schema& operator=(const Schema&) = delete;

  bool isLoaded() const { return schema_ != nullptr; }
  bool accepts(const std::string& fileName) const {
    const std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> document(
        xmlReadFile(fileName.c_str(), nullptr, XML_PARSE_NONET), xmlFreeDoc);
    if (document == nullptr) return false;
    xmlRelaxNGValidCtxtPtr validation = xmlRelaxNGNewValidCtxt(schema_);
    const bool isValid = xmlRelaxNGValidateDoc(validation, document.get()) == 0;
    xmlRelaxNGFreeValidCtxt(validation);
    return isValid;
  }

 private:
  template <class Error>
  static void ignore(void* /*context*/, Error* /*error*/) {}

  xmlRelaxNGPtr schema_ = nullptr;
};

// docs/batch-files.md names these too.
const std::map<std::string, std::string> kDifferences = {
    // Refused by the reader only.
    {"comment.xml", "comments are invisible to a schema"},
    {"comment_before_root.xml", "comments are invisible to a schema"},
    {"processing_instruction.xml", "processing instructions are invisible to a schema"},
    {"cdata.xml", "a CDATA section is text to a schema"},
    {"doctype.xml", "the document type is invisible to a schema"},
    {"external_entity.xml", "the document type is invisible to a schema"},
    {"file_namespace.xml", "a namespace declaration is no attribute to a schema"},
    // Refused by the schema only.
    {"version_unjudged.xml", "the version is judged by the lister, behind the reader"},
    {"params_text.xml",
     "text between options becomes an option named params, which the option table refuses"},
    {"parts_nested.xml", "the reader looks for srcpath and so on anywhere below file"},
    {"empty_parts_beside.xml", "the reader passes over empty elements beside full ones"},
    {"root_namespace.xml", "the reader knows no namespaces"},
};

TEST(BatchSchema, agreesWithTheReaderExceptWhereNamed) {
  std::map<std::string, bool> bySchema;
  {
    const Schema schema;
    ASSERT_TRUE(schema.isLoaded());
    for (const std::string& directory : {kAccepted, kRefused, kExamples}) {
      for (const std::string& name : namesIn(directory)) {
        bySchema[name] = schema.accepts(directory + "/" + name);
      }
    }
  }
  const test::CapturedLog captured(kUrgent);
  std::set<std::string> expected;
  for (const auto& [name, reason] : kDifferences) expected.insert(name);
  std::set<std::string> differences;
  for (const std::string& directory : {kAccepted, kRefused, kExamples}) {
    for (const std::string& name : namesIn(directory)) {
      if (bySchema.at(name) != test::BothPasses(directory + "/" + name).accepted()) differences.insert(name);
    }
  }
  EXPECT_EQ(differences, expected);
}

TEST(BatchDocs, everyXmlBlockIsAnExampleFile) {
  std::set<std::string> examples;
  for (const std::string& name : namesIn(kExamples)) examples.insert(test::readFile(kExamples + "/" + name));
  const std::string docs = test::readFile(TAMRIX_SOURCE_DIR "/docs/batch-files.md");
  const std::string open = "```xml\n";
  std::set<std::string> blocks;
  for (std::size_t at = docs.find(open); at != std::string::npos; at = docs.find(open, at)) {
    at += open.size();
    blocks.insert(docs.substr(at, docs.find("```", at) - at));
  }
  EXPECT_EQ(blocks, examples);
}

}  // namespace
}  // namespace tamrix
