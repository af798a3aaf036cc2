#include "pipeline/run/waiting.h"

#include "reader/list/copy_list.h"

namespace tamrix {

namespace {

class ListingThread : public Thread {
 public:
  explicit ListingThread(CopyList& list) : Thread("lister"), list_(list) {}

  void run() override {
    const MayWait mayWait(*this);
    result_ = list_.getList();
  }
  // Of getList, once it has run.
  int result() const { return result_; }

 private:
  CopyList& list_;
  int result_ = 1;
};

}  // namespace

int listFiles(PipelineGlobals& globals, CopyList& list) {
  ListingThread listing(list);
  if (listing.start(&globals.event) == 0) {
    waitForThread(globals, listing, [&] { listing.interrupt(); });
    listing.join();
  } else {
    listing.run();  // no thread is to be had: a stop is answered between system calls
  }
  globals.counters.phase.store(RunCounters::Phase::kEnding, std::memory_order_release);
  return listing.result();
}

}  // namespace tamrix
