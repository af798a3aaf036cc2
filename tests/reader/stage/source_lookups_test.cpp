#include "reader/stage/source_lookups.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <set>

#include "pipeline/stage/globals.h"
#include "reader/record/file_c.h"

namespace tamrix {
namespace {

// Files called "0", "1" and so on.
class Files {
 public:
  explicit Files(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      const FilePair pair{FilePath(std::to_string(i)), FilePath("to")};
      extents_.emplace_back().file = &files_.emplace_back(pair, status_);
      list_.push_back(&extents_.back());
    }
  }
  const std::vector<Extent*>& list() const { return list_; }

 private:
  struct stat status_ {};
  std::deque<FileC> files_;
  std::deque<Extent> extents_;
  std::vector<Extent*> list_;
};

// An opening that waits, or one that works, for a while.
void sleepAWhile() { usleep(200); }
void workAWhile() {
  const auto begun = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - begun < std::chrono::microseconds(200)) {
  }
}

TEST(SourceLookups, areMadeOnlyWhereOpeningIsWaitedForAndOfTheNextFilesOnly) {
  constexpr std::size_t kFiles = 5000;
  const Files files(kFiles);
  PipelineGlobals globals;
  std::mutex mutex;
  std::set<std::size_t> seen;
  std::atomic<std::size_t> position = 0;
  std::atomic<int> faults = 0;
  SourceLookups lookups(files.list(), globals.stopExecution, [&](const std::string& path) {
    const std::size_t number = std::stoul(path);
    const std::lock_guard lock(mutex);
    const bool isNew = seen.insert(number).second;
    if (!isNew || number > position + SourceLookups::kFilesAhead) ++faults;
  });
  const auto open = [&](void (*opening)()) {
    const SourceLookups::Opening now(lookups, position);
    opening();
  };
  for (; position < 100; ++position) open(workAWhile);
  EXPECT_FALSE(lookups.isHelped());
  // A busy machine may make one look like work.
  for (; position < kFiles / 2 && !lookups.isHelped(); ++position) {
    open(sleepAWhile);
  }
  ASSERT_TRUE(lookups.isHelped());
  // Each of the others is looked up before its turn. Waits for that.
  for (; position < kFiles; ++position) {
    open([] {});
    for (bool isThere = position + 1 == kFiles; !isThere; sched_yield()) {
      const std::lock_guard lock(mutex);
      isThere = seen.contains(position + 1);
    }
  }
  EXPECT_EQ(faults, 0);
  EXPECT_EQ(*seen.rbegin(), kFiles - 1);
}

TEST(SourceLookups, endWithAStopWhileALookupWaits) {
  const Files files(1000);
  PipelineGlobals globals;
  std::atomic<int> waiting = 0;
  SourceLookups lookups(files.list(), globals.stopExecution, [&](const std::string&) {
    ++waiting;
    while (!globals.stopExecution.isSet()) pause();  // until it is interrupted
  });
  std::size_t position = 0;
  for (; position < files.list().size() - 1 && !lookups.isHelped(); ++position) {
    const SourceLookups::Opening opening(lookups, position);
    sleepAWhile();
  }
  ASSERT_TRUE(lookups.isHelped());
  const SourceLookups::Opening offers(lookups, position);
  while (waiting == 0) usleep(100);
  globals.stopPipeline();
}

}  // namespace
}  // namespace tamrix
