// The loops of the three kinds of stage, with stages that do no more than a case needs.
#include "pipeline/stages.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/wide_properties.h"

namespace tamrix {
namespace {

using namespace std::chrono_literals;

// Hands out `lengths`, one buffer each, every buffer a file; the last one ends the data.
class ListReader : public ReaderModule {
 public:
  ListReader(PipelineGlobals& globals, std::vector<int> lengths)
      : ReaderModule(globals), lengths_(std::move(lengths)) {}
  int fillBuffer(BufferSlot& slot) override {
    slot.length = lengths_[next_++];
    slot.endOfFile = 1;
    slot.endOfData = next_ == lengths_.size() ? 1 : 0;
    return 0;
  }

 private:
  std::vector<int> lengths_;
  std::size_t next_ = 0;
};

// Stages that note the lengths they see, and return `code`.
struct NotingProcess : ProcessModule {
  NotingProcess(PipelineGlobals& globals, int c) : ProcessModule(globals, "noting"), code(c) {}
  int processBuffer(BufferSlot& slot) override { return seen.push_back(slot.length), code; }
  const int code;
  std::vector<int> seen;
};
struct NotingWriter : WriterModule {
  NotingWriter(PipelineGlobals& globals, int c) : WriterModule(globals), code(c) {}
  int emptyBuffer(BufferSlot& slot) override { return seen.push_back(slot.length), code; }
  const int code;
  std::vector<int> seen;
};

TEST(Stages, passOnBuffersWithoutDataAndStopAtAFailureWithItsCode) {
  const test::CapturedLog captured(kProgress);
  const test::WideProperties properties({{"total-buffer-size", "64"}, {"buffer-size", "16"}});
  struct Row {
    int processCode;
    int writerCode;
    std::vector<int> exitCodes;
  };
  for (const Row& row : {Row{0, 0, {0, 0, 0}}, Row{7, 0, {1, 7, 1}}, Row{0, 8, {1, 1, 8}}}) {
    PipelineGlobals globals;
    const bool fails = row.processCode + row.writerCode != 0;
    ListReader reader(globals, fails ? std::vector<int>(1000, 1) : std::vector<int>{3, -1, 0, 5, -1});
    NotingProcess process(globals, row.processCode);
    NotingWriter writer(globals, row.writerCode);
    const std::vector<Module*> modules = {&reader, &process, &writer};
    BufferQ ring(1ms);
    ASSERT_EQ(ring.createQ(3, globals.stopExecution), 0);
    for (int id = 0; Module * module : modules) {
      module->setModuleId(id++);
      module->setRing(ring);
      ASSERT_EQ(module->start(), 0);
    }
    std::vector<int> exitCodes;
    for (Module* module : modules) {
      module->join();
      exitCodes.push_back(module->exitCode());
    }
    EXPECT_EQ(exitCodes, row.exitCodes);
    EXPECT_EQ(globals.stopExecution.isSet(), fails);
    if (fails) continue;
    EXPECT_EQ(process.seen, (std::vector<int>{3, 0, 5}));
    EXPECT_EQ(writer.seen, process.seen);
  }
  EXPECT_EQ(captured.count(msg::kWriterFilesCopied, 5), 1);
  EXPECT_EQ(captured.count(msg::kWriterFilesCopied, 1000), 0);
  EXPECT_EQ(captured.count(msg::kProcessFailed, 7), 1);
  EXPECT_EQ(captured.count(msg::kWriterEmptyFailed, 8), 1);
}

}  // namespace
}  // namespace tamrix
