#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "pipeline/buffer_q.h"
#include "tests/support/captured_log.h"
#include "tests/support/test_properties.h"

namespace tamrix {
namespace {

using namespace std::chrono_literals;
using test::CapturedLog;
using test::TestProperties;

// Proves that every slot of the ring has exactly one owner.
void expectOneOwnerEach(const BufferQ& ring, int modules) {
  std::vector<int> owners(static_cast<std::size_t>(ring.bufferCount()), 0);
  for (int id = 0; id < modules; ++id) {
    const BufferQ::Run run = ring.ownedBy(id);
    if (run.head == BufferQ::kStarved) continue;
    for (std::size_t slot = run.head;; slot = (slot + 1) % owners.size()) {
      ++owners[slot];
      if (slot == run.tail) break;
    }
  }
  for (std::size_t slot = 0; slot < owners.size(); ++slot) EXPECT_EQ(owners[slot], 1) << "slot " << slot;
}

class RingTest : public testing::Test {
 protected:
  static std::string bytes(int count) { return std::to_string(count * 16); }

  CapturedLog captured_{kInfo};
  TestProperties properties_{{"buffer-size", "16"}};
  PipelineGlobals globals_;
};

TEST_F(RingTest, everySlotHasOneOwnerWhateverTheStagesDo) {
  for (const int modules : {1, 2, 3, 4}) {
    for (const int count : {1, 2, 3, 5}) {
      properties_.set("total-buffer-size", bytes(count));
      BufferQ ring(1ms);
      ASSERT_EQ(ring.createQ(modules, globals_.stopExecution), 0);
      std::vector<std::uint32_t> handled(static_cast<std::size_t>(modules), 0);
      // A fixed pseudo-random walk over the stages; one that is starved is left alone.
      unsigned state = 7;
      for (int step = 0; step < 400; ++step) {
        state = state * 1103515245U + 12345U;
        const int id = static_cast<int>((state >> 16U) % static_cast<unsigned>(modules));
        if (ring.ownedBy(id).head == BufferQ::kStarved) continue;
        BufferSlot* slot = nullptr;
        ASSERT_EQ(ring.getBufferSlot(id, slot), 0);
        EXPECT_EQ(slot->bufferId, handled[static_cast<std::size_t>(id)]++ % static_cast<unsigned>(count));
        ASSERT_EQ(ring.putBufferSlot(id, *slot), 0);
        EXPECT_EQ(slot->nextModuleId, static_cast<std::uint32_t>((id + 1) % modules));
        expectOneOwnerEach(ring, modules);
      }
    }
  }
}

TEST_F(RingTest, buffersReachEveryStageInOrderAndWhole) {
  constexpr int kBuffers = 5000;
  for (const int count : {1, 2, 7}) {
    properties_.set("total-buffer-size", bytes(count));
    BufferQ ring;
    ASSERT_EQ(ring.createQ(3, globals_.stopExecution), 0);
    const auto stage = [&](int id) {
      for (int i = 0; i < kBuffers; ++i) {
        BufferSlot* slot = nullptr;
        ASSERT_EQ(ring.getBufferSlot(id, slot), 0);
        if (id == 0) {
          slot->length = 0;
          slot->offset = static_cast<std::uint64_t>(i);
        }
        ASSERT_EQ(slot->offset, static_cast<std::uint64_t>(i));
        ASSERT_EQ(slot->length, id);
        slot->data[slot->length++] = static_cast<char>(id);
        ASSERT_EQ(ring.putBufferSlot(id, *slot), 0);
      }
    };
    std::vector<std::thread> threads;
    for (int id = 0; id < 3; ++id) threads.emplace_back(stage, id);
    for (std::thread& thread : threads) thread.join();
    expectOneOwnerEach(ring, 3);
  }
}

TEST_F(RingTest, theReaderKeepsAShortLeadUntilALongOneIsAllowed) {
  constexpr int kBuffers = 32;
  properties_.set("buffer-size", "1MB");
  properties_.set("total-buffer-size", std::to_string(kBuffers) + "MB");
  BufferQ ring;
  ASSERT_EQ(ring.createQ(2, globals_.stopExecution), 0);
  const auto read = [&](int buffers) {
    for (int i = 0; i < buffers; ++i) {
      BufferSlot* slot = nullptr;
      ASSERT_EQ(ring.getBufferSlot(0, slot), 0);
      slot->length = slot->capacity;
      ASSERT_EQ(ring.putBufferSlot(0, *slot), 0);
    }
  };
  const auto owned = [&](int id) {
    const BufferQ::Run run = ring.ownedBy(id);
    return run.head == BufferQ::kStarved ? 0
                                         : static_cast<int>((run.tail + kBuffers - run.head) % kBuffers) + 1;
  };
  std::thread reader(read, 1000);
  std::set<const char*> buffers;
  for (int i = 0; i < 1000; ++i) {
    BufferSlot* slot = nullptr;
    ASSERT_EQ(ring.getBufferSlot(1, slot), 0);
    EXPECT_LE(owned(1), 4);
    buffers.insert(slot->data);
    ASSERT_EQ(ring.putBufferSlot(1, *slot), 0);
  }
  reader.join();
  EXPECT_LE(buffers.size(), 5U);

  ring.allowLongLead();
  read(kBuffers);
  EXPECT_EQ(owned(0), 0);
  EXPECT_EQ(owned(1), kBuffers);
}

TEST_F(RingTest, stopBeforeAGetHandsOutNothing) {
  properties_.set("total-buffer-size", bytes(2));
  BufferQ ring(1ms);
  ASSERT_EQ(ring.createQ(2, globals_.stopExecution), 0);
  globals_.stopPipeline();
  BufferSlot* slot = nullptr;
  EXPECT_EQ(ring.getBufferSlot(0, slot), -1);
  EXPECT_EQ(slot, nullptr);
}

TEST_F(RingTest, stopWhileStarvedEndsTheWait) {
  properties_.set("total-buffer-size", bytes(2));
  BufferQ ring(1ms);
  ASSERT_EQ(ring.createQ(2, globals_.stopExecution), 0);
  int result = 0;
  std::thread starved([&] {
    BufferSlot* slot = nullptr;
    result = ring.getBufferSlot(1, slot);
  });
  globals_.stopPipeline();
  starved.join();
  // -1 when the stop came before the get, 1 when it came during the wait.
  EXPECT_NE(result, 0);
}

TEST_F(RingTest, aWaitOutlastsItsRoundsUntilASlotComes) {
  captured_.logger().reinit(kDebug, false);
  properties_.set("total-buffer-size", bytes(1));
  BufferQ ring(1ms);
  ASSERT_EQ(ring.createQ(2, globals_.stopExecution), 0);
  int result = -2;
  std::thread starved([&] {
    BufferSlot* slot = nullptr;
    result = ring.getBufferSlot(1, slot);
  });
  while (captured_.outputCount(msg::kRingTimeoutNotice, 1) < 2) std::this_thread::yield();
  BufferSlot* slot = nullptr;
  ASSERT_EQ(ring.getBufferSlot(0, slot), 0);
  ASSERT_EQ(ring.putBufferSlot(0, *slot), 0);
  starved.join();
  EXPECT_EQ(result, 0);
}

TEST_F(RingTest, sizesAreCheckedInOrderAndReportedByTheirOwnMessage) {
  CapturedLog debug(kDebug);
  const TestProperties base;
  struct Row {
    const char* total;
    const char* size;
    int count;  // of buffers; 0: refused
    std::string message;
  };
  Logger& log = debug.logger();
  for (const Row& row : std::vector<Row>{
           {"400MB", "128KB", 3200, log.format(msg::kBufferCreate, 3200)},
           {"4GB", "1GB", 4, log.format(msg::kBufferCreate, 4)},
           {"1000B", "300B", 3, log.format(msg::kBufferSizes, 300, 1000)},
           {"2MB", "1B", 2097152, log.format(msg::kBufferManyBuffers, 2097152)},
           {"4097MB", "bad", 0, log.format(msg::kBufferTotalTooLarge, 4097LL << 20)},
           {"99999999999999999999GB", "1", 0, log.format(msg::kBufferTotalTooLarge, 9223372036854775807LL)},
           {"-5MB", "1", 0, log.format(msg::kBufferTotalNotPositive, -(5LL << 20))},
           {"0", "1", 0, log.format(msg::kBufferTotalNotPositive, 0)},
           {"4GB", "1025MB", 0, log.format(msg::kBufferSizeTooLarge, 1025LL << 20)},
           {"4GB", "0", 0, log.format(msg::kBufferSizeNotPositive, 0)},
           {"1MB", "2MB", 0, log.format(msg::kBufferSizeOverTotal, 2 << 20, 1LL << 20)},
           {"4GB", "1B", 0, log.format(msg::kBufferCannotCreate, 2147483647, "Cannot allocate memory")},
           {"128kb", "1", 0, log.format(msg::kSizeUnknownUnit, "kb")},
           {"1.5MB", "1", 0, log.format(msg::kSizeUnknownUnit, ".5MB")},
           {"128 KB", "1", 0, log.format(msg::kSizeUnknownUnit, " KB")},
           {"2TB", "1", 0, log.format(msg::kSizeUnknownUnit, "TB")},
           {"1BB", "1", 0, log.format(msg::kSizeUnknownUnit, "B")},
           {"1KBx", "1", 0, log.format(msg::kSizeUnknownUnit, "x")},
           {"-abc", "1", 0, log.format(msg::kSizeNotNumeric, "abc")},
           {"", "1", 0, log.format(msg::kSizeNotNumeric, "")},
       }) {
    const TestProperties sizes{{"total-buffer-size", row.total}, {"buffer-size", row.size}};
    debug.clear();
    BufferQ ring;
    EXPECT_EQ(ring.createQ(2, globals_.stopExecution), row.count == 0 ? 1 : 0)
        << row.total << ' ' << row.size;
    if (row.count != 0) {
      EXPECT_EQ(ring.bufferCount(), row.count) << row.total;
    }
    EXPECT_NE(("\n" + debug.logText()).find("\n" + row.message + "\n"), std::string::npos)
        << row.message << "\n"
        << debug.logText();
  }
}

}  // namespace
}  // namespace tamrix
