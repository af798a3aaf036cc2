#include "main/interrupts.h"

#include <array>
#include <atomic>
#include <csignal>

namespace tamrix {

namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};

std::atomic<PipelineGlobals*> runningGlobals{nullptr};
std::atomic<int> receivedSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);

// Sets the action of each of the signals that is not ignored.
void setActions(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  // A stage's system call goes on; the main thread's wait for an answer looks at the stop flag.
  action.sa_flags = SA_RESTART;
  // A second signal that comes with the first waits until the first has been handled, and then ends the
  // process.
  for (const int number : kSignals) sigaddset(&action.sa_mask, number);
  for (const int number : kSignals) {
    struct sigaction before {};
    sigaction(number, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
  }
}

// Runs in a signal handler: atomics and sigaction only.
void onSignal(int number) {
  int none = 0;
  receivedSignal.compare_exchange_strong(none, number);
  if (PipelineGlobals* const globals = runningGlobals.load()) globals->stopPipeline();
  setActions(SIG_DFL);
}

}  // namespace

Interrupts::Interrupts(PipelineGlobals& globals) {
  receivedSignal = 0;
  runningGlobals = &globals;
  setActions(&onSignal);
}

Interrupts::~Interrupts() {
  setActions(SIG_DFL);
  runningGlobals = nullptr;
}

int Interrupts::received() { return receivedSignal; }

}  // namespace tamrix
