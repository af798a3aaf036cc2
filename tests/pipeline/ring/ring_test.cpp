#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "config/run_options.h"
#include "pipeline/ring/buffer_q.h"
#include "pipeline/stage/globals.h"
#include "tests/support/captured_log.h"
#include "tests/support/wide_properties.h"

namespace tamrix {
namespace {

using namespace std::chrono_literals;

class RingTest : public testing::Test {
 protected:
  void create(BufferQ& ring, int modules, int count, int size = 16) {
    properties_.set("buffer-size", std::to_string(size));
    properties_.set("total-buffer-size", std::to_string(count * size));
    ASSERT_EQ(ring.createQ(modules, globals_.stopExecution, readRunOptions(*properties)), 0);
  }

  // Takes `count` buffers through a stage.
  static void pass(BufferQ& ring, int id, int count, const std::function<void(BufferSlot&)>& work = {}) {
    for (int i = 0; i < count; ++i) {
      BufferSlot* slot = nullptr;
      ASSERT_EQ(ring.getBufferSlot(id, slot), 0);
      if (work) work(*slot);
      ASSERT_EQ(ring.putBufferSlot(id, *slot), 0);
    }
  }

  // Proves that every slot of the ring has exactly one owner; returns how many each stage has.
  static std::vector<int> owned(const BufferQ& ring, int modules) {
    std::vector<int> owners(static_cast<std::size_t>(ring.bufferCount()), 0);
    std::vector<int> counts;
    for (int id = 0; id < modules; ++id) {
      counts.push_back(0);
      const BufferQ::Run run = ring.ownedBy(id);
      if (run.head == BufferQ::kStarved) continue;
      for (std::size_t slot = run.head;; slot = (slot + 1) % owners.size()) {
        ++owners[slot];
        ++counts.back();
        if (slot == run.tail) break;
      }
    }
    EXPECT_EQ(owners, std::vector<int>(owners.size(), 1));
    return counts;
  }

  test::CapturedLog captured_{kInfo};
  test::WideProperties properties_;
  PipelineGlobals globals_;
};

TEST_F(RingTest, everySlotHasOneOwnerWhateverTheStagesDo) {
  for (const int modules : {1, 2, 3, 4}) {
    for (const int count : {1, 2, 3, 5}) {
      BufferQ ring(1ms);
      create(ring, modules, count);
      std::vector<std::uint32_t> handled(static_cast<std::size_t>(modules), 0);
      // A fixed pseudo-random walk over the stages; one that is starved is left alone.
      unsigned state = 7;
      for (int step = 0; step < 400; ++step) {
        state = state * 1103515245U + 12345U;
        const int id = static_cast<int>((state >> 16U) % static_cast<unsigned>(modules));
        if (ring.ownedBy(id).head == BufferQ::kStarved) continue;
        BufferSlot* passed = nullptr;
        pass(ring, id, 1, [&](BufferSlot& slot) { passed = &slot; });
        EXPECT_EQ(passed->bufferId, handled[static_cast<std::size_t>(id)]++ % static_cast<unsigned>(count));
        EXPECT_EQ(passed->nextModuleId, static_cast<std::uint32_t>((id + 1) % modules));
        owned(ring, modules);
      }
    }
  }
}

TEST_F(RingTest, buffersReachEveryStageInOrderAndWhole) {
  for (const int count : {1, 2, 7}) {
    BufferQ ring;
    create(ring, 3, count);
    const auto stage = [&](int id) {
      std::uint64_t number = 0;
      pass(ring, id, 5000, [&](BufferSlot& slot) {
        if (id == 0) {
          slot.length = 0;
          slot.offset = number;
        }
        EXPECT_EQ(slot.offset, number++);
        EXPECT_EQ(slot.length, id);
        slot.data[slot.length++] = static_cast<char>(id);
      });
    };
    std::vector<std::thread> threads;
    for (int id = 0; id < 3; ++id) threads.emplace_back(stage, id);
    for (std::thread& thread : threads) thread.join();
    owned(ring, 3);
  }
}

TEST_F(RingTest, theReaderKeepsAShortLeadUntilALongOneIsAllowed) {
  constexpr int kBuffers = 32;
  BufferQ ring;
  create(ring, 2, kBuffers, 1 << 20);
  const auto fill = [](BufferSlot& slot) { slot.length = slot.capacity; };
  std::thread reader([&] { pass(ring, 0, 1000, fill); });
  std::set<const char*> buffers;
  pass(ring, 1, 1000, [&](const BufferSlot& slot) { buffers.insert(slot.data); });
  reader.join();
  EXPECT_LE(buffers.size(), 5U);

  ring.allowLongLead();
  pass(ring, 0, kBuffers, fill);
  EXPECT_EQ(owned(ring, 2), (std::vector<int>{0, kBuffers}));
}

TEST_F(RingTest, aWaitOutlastsItsRoundsUntilASlotOrAStopComes) {
  captured_.logger().reinit(kDebug, false);
  BufferQ ring(1ms);
  create(ring, 2, 1);
  int stopped = 0;
  BufferSlot* slot = nullptr;
  std::thread starved([&] {
    pass(ring, 1, 1);
    stopped = ring.getBufferSlot(1, slot);
  });
  while (captured_.outputCount(msg::kRingTimeoutNotice, 1) < 2) std::this_thread::yield();
  pass(ring, 0, 1);
  while (ring.ownedBy(0).head == BufferQ::kStarved) std::this_thread::yield();
  globals_.stopPipeline();
  starved.join();
  // -1 when the stop came before the get, 1 when it came during the wait.
  EXPECT_NE(stopped, 0);
  EXPECT_EQ(ring.getBufferSlot(0, slot), -1);
  EXPECT_EQ(slot, nullptr);
}

// Would last for ever if a stop had to wait for the end of a round.
TEST_F(RingTest, aStopWakesWhoeverWaits) {
  for (int i = 0; i < 200; ++i) {
    PipelineGlobals globals;
    BufferQ ring(24h);
    ASSERT_EQ(ring.createQ(3, globals.stopExecution, readRunOptions(*properties)), 0);
    std::vector<std::thread> starved;
    for (const int id : {1, 2}) {
      starved.emplace_back([&ring, id] {
        BufferSlot* slot = nullptr;
        EXPECT_NE(ring.getBufferSlot(id, slot), 0);
      });
    }
    globals.stopPipeline();
    ring.wakeAll();
    for (std::thread& thread : starved) thread.join();
  }
}

}  // namespace
}  // namespace tamrix
