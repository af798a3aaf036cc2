// The loops of the three kinds of stage, with stages that do no more than a case needs.
#include "pipeline/stages.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/test_properties.h"

namespace tamrix {
namespace {

using namespace std::chrono_literals;
using test::CapturedLog;
using test::TestProperties;

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

using Action = std::function<int(const BufferSlot&)>;

class ActionProcess : public ProcessModule {
 public:
  ActionProcess(PipelineGlobals& globals, Action action)
      : ProcessModule(globals, "action"), action_(std::move(action)) {}
  int processBuffer(BufferSlot& slot) override { return action_(slot); }

 private:
  Action action_;
};

class ActionWriter : public WriterModule {
 public:
  ActionWriter(PipelineGlobals& globals, Action action) : WriterModule(globals), action_(std::move(action)) {}
  int emptyBuffer(BufferSlot& slot) override { return action_(slot); }

 private:
  Action action_;
};

class StagesTest : public testing::Test {
 protected:
  static void run(const PipelineGlobals& globals, const std::vector<Module*>& modules) {
    BufferQ ring(1ms);
    ASSERT_EQ(ring.createQ(static_cast<int>(modules.size()), globals.stopExecution), 0);
    for (std::size_t id = 0; id < modules.size(); ++id) {
      modules[id]->setModuleId(static_cast<int>(id));
      modules[id]->setRing(ring);
      ASSERT_EQ(modules[id]->start(), 0);
    }
    for (Module* module : modules) module->join();
  }

  CapturedLog captured_{kProgress};
  TestProperties properties_{{"total-buffer-size", "64"}, {"buffer-size", "16"}};
  PipelineGlobals globals_;
};

TEST_F(StagesTest, buffersWithoutDataArePassedOnUntouchedButTheirFileCounts) {
  std::vector<int> processed;
  std::vector<int> emptied;
  ListReader reader(globals_, {3, -1, 0, 5, -1});
  ActionProcess process(globals_,
                        [&](const BufferSlot& slot) { return processed.push_back(slot.length), 0; });
  ActionWriter writer(globals_, [&](const BufferSlot& slot) { return emptied.push_back(slot.length), 0; });
  run(globals_, {&reader, &process, &writer});
  EXPECT_EQ(processed, (std::vector<int>{3, 0, 5}));
  EXPECT_EQ(emptied, processed);
  EXPECT_EQ(captured_.count(msg::kWriterFilesCopied, 5), 1);
  EXPECT_FALSE(globals_.stopExecution.isSet());
  for (const Module* module : std::vector<const Module*>{&reader, &process, &writer}) {
    EXPECT_EQ(module->exitCode(), 0);
  }
}

TEST_F(StagesTest, aFailingStageStopsTheOthersAndKeepsItsCode) {
  for (const bool writerFails : {false, true}) {
    PipelineGlobals globals;
    captured_.clear();
    ListReader reader(globals, std::vector<int>(1000, 1));
    const auto failing = [](const BufferSlot&) { return 7; };
    const auto fine = [](const BufferSlot&) { return 0; };
    ActionProcess process(globals, writerFails ? Action(fine) : Action(failing));
    ActionWriter writer(globals, writerFails ? Action(failing) : Action(fine));
    run(globals, {&reader, &process, &writer});
    EXPECT_TRUE(globals.stopExecution.isSet());
    EXPECT_EQ(reader.exitCode(), 1);
    EXPECT_EQ(process.exitCode(), writerFails ? 1 : 7);
    EXPECT_EQ(writer.exitCode(), writerFails ? 7 : 1);
    EXPECT_EQ(captured_.count(msg::kProcessFailed, 7), writerFails ? 0 : 1);
    EXPECT_EQ(captured_.count(msg::kWriterEmptyFailed, 7), writerFails ? 1 : 0);
    EXPECT_EQ(captured_.count(msg::kWriterFilesCopied, 1000), 0);
  }
}

TEST_F(StagesTest, baseStagesSayThatTheyAreNotToBeUsed) {
  ReaderModule reader(globals_);
  ProcessModule process(globals_, "base");
  WriterModule writer(globals_);
  BufferSlot slot{};
  EXPECT_EQ(reader.getList(), 0);
  EXPECT_EQ(reader.fillBuffer(slot), 0);
  EXPECT_EQ(process.processBuffer(slot), 0);
  EXPECT_EQ(writer.emptyBuffer(slot), 0);
  EXPECT_EQ(captured_.count(msg::kReaderGetListNotOverridden), 1);
  EXPECT_EQ(captured_.count(msg::kReaderFillNotOverridden), 1);
  EXPECT_EQ(captured_.count(msg::kProcessNotOverridden), 1);
  EXPECT_EQ(captured_.count(msg::kWriterEmptyNotOverridden), 1);
}

}  // namespace
}  // namespace tamrix
