// The parts of the last line that have no terminal in them; what it looks like on one is tested there.
#include <gtest/gtest.h>

#include "pipeline/run/pace.h"
#include "pipeline/run/progress_text.h"

namespace tamrix {
namespace {

TEST(ScreenText, nothingReachesATerminalThatMovesItsCursorOtherwiseThanExpected) {
  struct Row {
    std::string text;
    int columns;
    Charset charset;
    std::string shown;
  };
  for (const auto& [text, columns, charset, shown] : std::vector<Row>{
           {"a\x7f\t", 20, Charset::kUtf8, R"(a\x7f\x09)"},
           {"a\x7f", 4, Charset::kUtf8, "a"},  // no half escape
           {"e\u0301\u0301\u0301", 1, Charset::kUtf8, "e\u0301\u0301\u0301"},
           {"\u1112\u1161\u11ab", 2, Charset::kUtf8, "\u1112\u1161\u11ab"},  // one syllable in three parts
           {"\u5bbd\u5bbd", 3, Charset::kUtf8, "\u5bbd"},
           {"\U0001f600x", 2, Charset::kUtf8, "\U0001f600"},
           {"\u202e\u009b1m\U000e0041", 40, Charset::kUtf8, R"(\u202e\u009b1m\U000e0041)"},
           {"\xc3(\xed\xa0\x80", 40, Charset::kUtf8, R"(\xc3(\xed\xa0\x80)"},
           {"\xe5\xae\xbd", 40, Charset::kAscii, R"(\xe5\xae\xbd)"},
           {"abc", -1, Charset::kUtf8, ""}}) {
    EXPECT_EQ(screenText(text, columns, charset), shown) << text;
  }
}

TEST(ProgressText, aLineTellsWhatIsKnownAndWhatMattersMost) {
  ProgressSnapshot listing;
  listing.phase = RunCounters::Phase::kListing;
  listing.filesFound = 12345;
  ProgressSnapshot listed = listing;
  listed.filesListed = 2000;
  listed.bytesListed = 999'499;
  listed.waitedFor = "file system";
  listed.secondsWaited = 100;
  ProgressSnapshot begun;
  begun.phase = RunCounters::Phase::kCopying;
  begun.totalBytes = 999'500'000;
  begun.totalFiles = 2;
  begun.waitedFor = "source";
  begun.secondsWaited = 1.9;
  ProgressSnapshot empty = begun;
  empty.totalBytes = 0;
  empty.files = 1;
  ProgressSnapshot copying = begun;
  copying.bytes = 699'999'999'999;
  copying.totalBytes = 1'250'000'000'000;
  copying.files = 17;
  copying.totalFiles = 1234;
  copying.rate = 187'499'999;
  copying.secondsLeft = 3661;
  copying.ringPercent = 87;
  copying.file = "scene-31-take-2.mov";
  ProgressSnapshot grown = begun;
  grown.bytes = 2'000'000'000;
  const std::string left = "55%, 1:01:01 left";
  for (const auto& [snapshot, columns, text] : std::vector<std::tuple<ProgressSnapshot, int, std::string>>{
           {listing, 80, "listing, 12345 files found"},
           {listed, 80, "listing, 2000/12345 files, 999 kB, waiting for the file system 1:40"},
           {listed, 45, "listing, waiting for the file system 1:40"},
           {begun, 80, "0% 0.00/1.00 GB, 0/2 files, ring 0%"},
           {empty, 80, "50% 0/0 B, 1/2 files, ring 0%"},
           {grown, 80, "100% 2.00/1.00 GB, 0/2 files, ring 0%"},
           {copying, 200,
            "55% 0.70/1.25 TB, 187 MB/s, 1:01:01 left, 17/1234 files, ring 87%, scene-31-take-2.mov"},
           {copying, 80, "55% 0.70/1.25 TB, 187 MB/s, 1:01:01 left, 17/1234 files, ring 87%, scene-31-take"},
           {copying, 75, "55% 0.70/1.25 TB, 187 MB/s, 1:01:01 left, 17/1234 files, scene-31-take-2.mo"},
           {copying, 40, "55%, 187 MB/s, 1:01:01 left, scene-31-ta"},
           {copying, 20, left},
           {copying, 10, left.substr(0, 10)},
           {copying, 0, ""}}) {
    EXPECT_EQ(progressText(snapshot, columns, Charset::kUtf8), text);
  }
}

// Moves `pace` from `from` to `to` seconds, four samples a second, at a rate; returns the bytes done then.
std::int64_t move(Pace& pace, double from, double to, std::int64_t bytes, double rate) {
  for (double now = from; now < to; now += 0.25) {
    bytes += static_cast<std::int64_t>(rate / 4);
    pace.add(now + 0.25, bytes, bytes);
  }
  return bytes;
}

TEST(Pace, timeLeftKnowsWhatALocateCostsAndForgetsWhatIsPast) {
  Pace pace;
  pace.add(0, 0, 0);
  EXPECT_EQ(pace.secondsLeft(1), Pace::kUnknown);
  std::int64_t bytes = move(pace, 0, 60, 0, 0);  // the way to the first file
  EXPECT_EQ(pace.standstill(), 60);
  EXPECT_EQ(pace.secondsLeft(1), Pace::kUnknown);
  bytes = move(pace, 60, 70, bytes, 4e8);
  EXPECT_EQ(pace.standstill(), 0);
  EXPECT_NEAR(pace.rate(), 4e8, 1);
  EXPECT_NEAR(pace.secondsLeft(static_cast<std::int64_t>(4e10)), 100, 0.1);
  pace.skipTo(1070);  // suspended
  EXPECT_EQ(pace.standstill(), 0);
  EXPECT_NEAR(pace.secondsLeft(static_cast<std::int64_t>(4e10)), 100, 0.1);
  // From now on each 5 s of data cost a locate of 5 s.
  double now = 1070;
  for (int file = 0; file < 60; ++file, now += 10) {
    bytes = move(pace, now, now + 5, bytes, 0);
    bytes = move(pace, now + 5, now + 10, bytes, 4e8);
  }
  EXPECT_NEAR(pace.secondsLeft(static_cast<std::int64_t>(4e10)), 200, 10);
  EXPECT_GT(pace.rate(), 2.5e8);  // now
}

}  // namespace
}  // namespace tamrix
