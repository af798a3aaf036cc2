#include "main/interrupts.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <string>

#include "log/logger.h"

namespace tamrix {

namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};
constexpr std::array kDeadlySignals = {SIGQUIT, SIGABRT};

std::array<std::string, kSignals.size()> acknowledgements;  // what the handler writes, by signal

std::atomic<PipelineGlobals*> runningGlobals{nullptr};
std::atomic<int> receivedSignal{0};
static_assert(std::atomic<int>::is_always_lock_free);

sigset_t allSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : kSignals) sigaddset(&set, number);
  return set;
}

// Sets the action of each of the signals that is not ignored.
void setActions(void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  // The main thread's own calls go on; those of another thread are interrupted by whoever started it.
  action.sa_flags = SA_RESTART;
  // A second signal that comes with the first waits until the action for a second one is set.
  action.sa_mask = allSignals();
  for (const int number : kSignals) {
    struct sigaction before {};
    sigaction(number, nullptr, &before);
    if (before.sa_handler != SIG_IGN) sigaction(number, &action, nullptr);
  }
}

// Runs in a signal handler: only calls that are safe there.
void onSignal(int number) {
  receivedSignal = number;
  if (PipelineGlobals* const globals = runningGlobals.load()) globals->stopPipeline();
  logger->console().endFromHandler();
  setActions(SIG_DFL);
  (void)std::signal(SIGHUP, SIG_IGN);  // a terminal that is closed sends two
  // From here on a second signal ends the process, even while the line can't be written.
  const sigset_t ours = allSignals();
  pthread_sigmask(SIG_UNBLOCK, &ours, nullptr);
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    if (kSignals.at(i) == number) logger->writeFromHandler(acknowledgements.at(i));
  }
}

// What ends a process at once ends the terminal's last line first; then the signal has its usual effect.
void onDeadlySignal(int number) {
  logger->console().endFromHandler();
  (void)std::signal(number, SIG_DFL);
  (void)std::raise(number);  // comes when this one is answered
}

}  // namespace

Interrupts::Interrupts(PipelineGlobals& globals) {
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    acknowledgements.at(i) = logger->format(msg::kMainStopping, kSignals.at(i)) + "\n";
  }
  receivedSignal = 0;
  runningGlobals = &globals;
  setActions(&onSignal);
  if (!logger->console().hasLastLine()) return;
  for (const int number : kDeadlySignals) (void)std::signal(number, &onDeadlySignal);
}

Interrupts::~Interrupts() {
  setActions(SIG_DFL);
  runningGlobals = nullptr;
}

int Interrupts::received() { return receivedSignal; }

}  // namespace tamrix
