#include "pipeline/stage/helper_threads.h"

#include <utility>

#include "pipeline/stage/thread.h"

namespace tamrix {

class HelperThreads::Helper : public Thread {
 public:
  Helper(const std::string& name, const std::function<void()>& work) : Thread(name), work_(work) {}

  void run() override {
    const MayWait mayWait(*this);
    work_();
  }

 private:
  const std::function<void()>& work_;
};

HelperThreads::HelperThreads(std::string name, const StopFlag& stop, std::function<void()> work)
    : name_(std::move(name)), stop_(stop), work_(std::move(work)) {}

HelperThreads::~HelperThreads() = default;

bool HelperThreads::add() {
  threads_.push_back(std::make_unique<Helper>(name_, work_));
  if (threads_.back()->start(&ended_) == 0) return true;
  threads_.pop_back();
  return false;
}

void HelperThreads::interrupt() {
  for (const std::unique_ptr<Helper>& helper : threads_) helper->interrupt();
}

void HelperThreads::join() {
  for (const std::unique_ptr<Helper>& helper : threads_) {
    while (helper->isRunning()) {
      if (stop_.isSet()) interrupt();
      ended_.waitFor(Thread::kInterruptRound);
    }
    helper->join();
  }
}

}  // namespace tamrix
