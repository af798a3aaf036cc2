#include "pipeline/stage/thread.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tamrix {

namespace {

constexpr std::size_t kSystemNameLength = 15;

}  // namespace

int Thread::start() {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // inherited by the new thread
  const int error = pthread_create(&handle_, nullptr, &Thread::entry, this);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  started_ = error == 0;
  if (started_) pthread_setname_np(handle_, name_.substr(0, kSystemNameLength).c_str());
  return error;
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
  static_cast<Thread*>(self)->run();
  return nullptr;
}

}  // namespace tamrix
