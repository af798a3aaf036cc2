#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "config/run_options.h"
#include "pipeline/ring/buffer_q.h"
#include "pipeline/stage/globals.h"
#include "tests/support/captured_log.h"

namespace tamrix {
namespace {

using namespace std::chrono_literals;

class RingTest : public testing::Test {
 protected:
  static void create(BufferQ& ring, const PipelineGlobals& globals, int modules, int count) {
    RunOptions options;
    options.bufferSize = "16";
    options.totalBufferSize = std::to_string(count * 16);
    ASSERT_EQ(ring.createQ(modules, globals.stopExecution, options), 0);
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

  test::CapturedLog captured_{kInfo};
  PipelineGlobals globals_;
};

TEST_F(RingTest, buffersReachEveryStageInOrderAndWholeAndReturn) {
  for (const int modules : {1, 2, 3, 4}) {
    for (const int count : {1, 2, 7, 40}) {
      BufferQ ring(24h);  // a stage that nobody wakes hangs
      create(ring, globals_, modules, count);
      const auto stage = [&](int id) {
        std::uint64_t number = 0;
        pass(ring, id, 5000, [&](BufferSlot& slot) {
          if (id == 0) {
            slot.length = 0;
            slot.offset = number;
            slot.endOfData = number == 4999;
          }
          EXPECT_EQ(slot.bufferId, number % static_cast<unsigned>(count));
          EXPECT_EQ(slot.offset, number++);
          EXPECT_EQ(slot.length, id);
          slot.data[slot.length++] = static_cast<char>(id);
        });
      };
      std::vector<std::thread> threads;
      for (int id = 0; id < modules; ++id) threads.emplace_back(stage, id);
      for (std::thread& thread : threads) thread.join();
      for (int id = 1; id < modules; ++id) EXPECT_EQ(ring.ownedBy(id).head, BufferQ::kStarved);
      pass(ring, 0, modules == 1 ? 0 : count);  // would hang if one were missing
    }
  }
}

TEST_F(RingTest, aWaitOutlastsItsRoundsUntilASlotOrAStopComes) {
  captured_.logger().reinit(kDebug, false);
  BufferQ ring(1ms);
  create(ring, globals_, 2, 1);
  int stopped = 0;
  BufferSlot* slot = nullptr;
  std::thread starved([&] {
    pass(ring, 1, 1);
    stopped = ring.getBufferSlot(1, slot);
  });
  while (captured_.count(msg::kRingTimeoutNotice, 1) < 2) std::this_thread::yield();
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
    create(ring, globals, 3, 2);
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
