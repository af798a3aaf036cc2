#include "pipeline/ring/reader_lead.h"

#include <gtest/gtest.h>

#include <string>

namespace tamrix {
namespace {

using namespace std::chrono_literals;

constexpr std::int64_t kMiB = 1 << 20;

// Takes a sample for each letter: the reader (c)opied, was (p)reempted, (s)lept, slept (a) quarter of the
// time, waited in the (r)ing, or lost the processor to the machine's (h)ost.
void take(ReaderLead& lead, const std::string& samples) {
  ThreadUsage now;
  lead.takeSample(now);
  for (const char sample : samples) {
    const auto rest = sample == 'c' ? 0ms : sample == 'a' ? 5ms : 18ms;
    now.clock += 20ms;
    now.processor += 20ms - rest;
    if (sample == 'p') now.queued += rest;
    if (sample == 's' || sample == 'a' || sample == 'r') ++now.sleeps;
    if (sample == 'r') lead.leaveOut(rest);
    EXPECT_EQ(lead.sampleIsDue(now.clock), sample != 'r');
    lead.takeSample(now);
  }
}

TEST(ReaderLead, onlySleepingMakesItLongAndOnlyStayingAwakeMakesItShort) {
  const struct {
    const char* samples;
    double limit;  // MiB
  } rows[] = {
      {"cccccccccccccccc", 1.5},
      {"pppppppp", 1.5},
      {"hhhhhhhh", 1.5},
      {"rrrrrrrr", 1.5},
      {"aaaa", 1.5},
      {"s", 6},
      {"sss", 96},
      {"sssss", 100},
      {"sssscccccccc", 25},
      {"ssssppppcrcr", 25},
      {"ssssccccccc", 100},
      {"sssscccaccccccc", 100},
      {"sssscccsccccccc", 100},
      {"scccccccccccccccccccccccc", 1.5},
  };
  for (const auto& row : rows) {
    ReaderLead lead(kMiB / 8, 800);
    take(lead, row.samples);
    EXPECT_EQ(lead.limit(), static_cast<std::int64_t>(row.limit * kMiB)) << row.samples;
  }
}

TEST(ReaderLead, whoeverWaitsGoesOnWithWorkForAWhile) {
  ReaderLead lead(kMiB / 8, 800);
  lead.filled(lead.limit() - 1);
  EXPECT_TRUE(lead.hasRoom());
  lead.filled(1);
  EXPECT_FALSE(lead.hasRoom());
  lead.emptied(lead.limit() * 3 / 4 - 1);
  EXPECT_FALSE(lead.readerShouldWake(800));
  lead.emptied(1);
  EXPECT_TRUE(lead.readerShouldWake(200));
  EXPECT_FALSE(lead.readerShouldWake(199));
  EXPECT_FALSE(lead.stageShouldWake(7));
  EXPECT_TRUE(lead.stageShouldWake(8));
  // A source that is waited for goes on for a MiB: a longer wait would stop a tape. A ring that is short has
  // no shorter lead.
  take(lead, "s");
  lead.filled(lead.limit() - kMiB * 5 / 4);
  EXPECT_FALSE(lead.readerShouldWake(8));
  lead.emptied(kMiB / 4);
  EXPECT_TRUE(lead.readerShouldWake(8));
  take(lead, "ssss");
  lead.filled(90 * kMiB);
  EXPECT_TRUE(lead.readerShouldWake(8));
  EXPECT_FALSE(lead.readerShouldWake(7));
  EXPECT_TRUE(lead.stageShouldWake(1));
  EXPECT_EQ(ReaderLead(kMiB, 3).limit(), 3 * kMiB);
  EXPECT_EQ(ReaderLead(kMiB, 100).limit(), 4 * kMiB);
}

}  // namespace
}  // namespace tamrix
