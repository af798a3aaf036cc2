#include "pipeline/stage/thread.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tamrix {

namespace {

constexpr std::size_t kSystemNameLength = 15;

// The signal that interrupts a system call. Nothing else uses real-time signals.
int interruptSignal() { return SIGRTMIN; }

// A handler that does nothing, and no SA_RESTART: that is what makes a call return.
void takeInterrupts() {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  sigaction(interruptSignal(), &action, nullptr);
}

}  // namespace

int Thread::start(RunEvent* atEnd) {
  takeInterrupts();
  atEnd_ = atEnd;
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  sigdelset(&all, interruptSignal());
  pthread_sigmask(SIG_SETMASK, &all, &before);  // inherited by the new thread
  const int error = pthread_create(&handle_, nullptr, &Thread::entry, this);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  started_ = error == 0;
  if (started_) pthread_setname_np(handle_, name_.substr(0, kSystemNameLength).c_str());
  return error;
}

void Thread::interrupt() {
  if (isRunning() && mayWait_.load()) pthread_kill(handle_, interruptSignal());
}

void Thread::join() {
  if (!started_) return;
  if (const int error = pthread_join(handle_, nullptr); error != 0) {
    (void)std::fprintf(stderr, "tamrix: joining thread %s: %s\n", name_.c_str(), std::strerror(error));
    std::abort();
  }
  started_ = false;
}

void* Thread::entry(void* self) {
  auto* const thread = static_cast<Thread*>(self);
  RunEvent* const atEnd = thread->atEnd_;
  thread->run();
  thread->ended_.store(true, std::memory_order_release);
  if (atEnd != nullptr) atEnd->post();
  return nullptr;
}

}  // namespace tamrix
