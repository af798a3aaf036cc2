#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <thread>

#include "pipeline/buffer_q.h"
#include "tests/support/captured_log.h"
#include "tests/support/wide_properties.h"

namespace tamrix {
namespace {

using namespace std::chrono_literals;

class RingTest : public testing::Test {
 protected:
  void create(BufferQ& ring, int count, int size) {
    properties_.set("buffer-size", std::to_string(size));
    properties_.set("total-buffer-size", std::to_string(count * size));
    ASSERT_EQ(ring.createQ(2, globals_.stopExecution), 0);
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
  test::WideProperties properties_;
  PipelineGlobals globals_;
};

TEST_F(RingTest, theReaderKeepsAShortLeadUntilALongOneIsAllowed) {
  constexpr int kBuffers = 32;
  BufferQ ring;
  create(ring, kBuffers, 1 << 20);
  const auto fill = [](BufferSlot& slot) { slot.length = slot.capacity; };
  std::thread reader([&] { pass(ring, 0, 1000, fill); });
  std::set<const char*> buffers;
  pass(ring, 1, 1000, [&](const BufferSlot& slot) { buffers.insert(slot.data); });
  reader.join();
  EXPECT_LE(buffers.size(), 5U);

  ring.allowLongLead();
  pass(ring, 0, kBuffers, fill);
}

TEST_F(RingTest, aWaitOutlastsItsRoundsUntilASlotOrAStopComes) {
  captured_.logger().reinit(kDebug, false);
  BufferQ ring(1ms);
  create(ring, 1, 16);
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

}  // namespace
}  // namespace tamrix
