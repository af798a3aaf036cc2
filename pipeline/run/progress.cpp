#include "pipeline/run/progress.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "log/logger.h"
#include "reader/record/file_c.h"

namespace tamrix {

namespace {

using Clock = std::chrono::steady_clock;
using Phase = RunCounters::Phase;

constexpr std::chrono::milliseconds kPeriod(250);

Charset charsetOf(const Console& console) { return console.takesUtf8() ? Charset::kUtf8 : Charset::kAscii; }

double secondsOf(Clock::duration time) { return std::chrono::duration<double>(time).count(); }

// Waits for one of the signals until `deadline`. Returns its number, or -1.
int awaitSignal(const sigset_t& signals, Clock::time_point deadline) {
  const auto left = std::max(std::chrono::nanoseconds(deadline - Clock::now()), std::chrono::nanoseconds(0));
  constexpr long kSecond = 1'000'000'000;
  const struct timespec time = {left.count() / kSecond, left.count() % kSecond};
  return sigtimedwait(&signals, nullptr, &time);
}

// Whoever works while nothing moves is waited for by the others.
std::string_view whoWorks(const RunCounters& counters) {
  const auto works = [&](std::size_t stage) {
    return counters.stages.at(stage).state.load(std::memory_order_relaxed) == StageState::kWorking;
  };
  bool behindSource = false;
  for (std::size_t stage = 1; stage <= counters.lastStage; ++stage)
    behindSource = behindSource || works(stage);
  if (!counters.writes) return behindSource ? "checksum" : "source";
  if (!works(0)) return "destination";
  return behindSource ? "source and the destination" : "source";
}

}  // namespace

Progress::Progress(const PipelineGlobals& globals)
    : Thread("progress"),
      counters_(globals.counters),
      draws_(logger->console().hasLastLine() && (logger->level() == kInfo || logger->level() == kWarning)) {
  sigemptyset(&signals_);
  sigaddset(&signals_, SIGUSR1);
  if (draws_) {
    for (const int number : {SIGTSTP, SIGCONT, SIGWINCH}) sigaddset(&signals_, number);
  }
  pthread_sigmask(SIG_BLOCK, &signals_, &signalsBefore_);
  if (start() != 0) pthread_sigmask(SIG_SETMASK, &signalsBefore_, nullptr);
}

Progress::~Progress() {
  ended_ = true;
  send(SIGUSR1);
  join();
  logger->console().end();
  pthread_sigmask(SIG_SETMASK, &signalsBefore_, nullptr);
}

void Progress::expectRequests() {
  // A signal that is ignored may not be queued.
  (void)std::signal(SIGUSR1, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void Progress::run() {
  const Clock::time_point start = Clock::now();
  Clock::time_point next = start;
  for (;;) {
    next = std::max(next + kPeriod, Clock::now());
    int number = 0;
    while ((number = awaitSignal(signals_, next)) > 0 && !ended_) {
      switch (number) {
        case SIGUSR1:
          takeSample(secondsOf(Clock::now() - start));
          tell();
          break;
        case SIGTSTP:
          suspend();
          break;
        case SIGCONT:
          pace_.skipTo(secondsOf(Clock::now() - start));
          logger->console().comeBack();
          draw();
          break;
        default:
          draw();
      }
    }
    if (ended_) return;
    takeSample(secondsOf(Clock::now() - start));
    draw();
  }
}

void Progress::takeSample(double now) {
  const Phase phase = counters_.phase.load(std::memory_order_acquire);
  if (phase != phase_) pace_ = Pace();
  phase_ = phase;
  if (logger->console().isAsking()) {
    pace_.skipTo(now);  // a person's time
    return;
  }
  std::int64_t bytes = counters_.bytesListed.get();
  std::int64_t steps = counters_.filesFound.get() + counters_.filesListed.get();
  if (phase == Phase::kCopying) {
    bytes = counters_.stages.at(counters_.lastStage).bytes.get();
    for (std::size_t stage = 0; stage <= counters_.lastStage; ++stage) {
      steps += counters_.stages.at(stage).buffers.get();
    }
  }
  pace_.add(now, bytes, steps);
}

// What is known since the last sample.
ProgressSnapshot Progress::snapshot() const {
  ProgressSnapshot now;
  now.phase = phase_;
  now.filesFound = counters_.filesFound.get();
  now.filesListed = counters_.filesListed.get();
  now.bytesListed = counters_.bytesListed.get();
  now.waitedFor = "file system";
  now.secondsWaited = pace_.standstill();
  if (phase_ != Phase::kCopying) return now;

  const StageCounters& first = counters_.stages.front();
  const StageCounters& last = counters_.stages.at(counters_.lastStage);
  now.bytes = last.bytes.get();
  now.totalBytes = counters_.bytes;
  now.files = last.files.get();
  now.totalFiles = counters_.files;
  const std::int64_t filled = first.buffers.get() - last.buffers.get();
  now.ringPercent = static_cast<int>(std::clamp<std::int64_t>(100 * filled / counters_.buffers, 0, 100));
  now.rate = pace_.rate();
  now.secondsLeft = pace_.secondsLeft(std::max<std::int64_t>(0, now.totalBytes - now.bytes));
  now.waitedFor = whoWorks(counters_);
  // The one that is waited for, if somebody is.
  const bool readsOn = first.state.load(std::memory_order_relaxed) == StageState::kWorking;
  const FileC* const file = (readsOn ? first : last).file.load(std::memory_order_acquire);
  if (file != nullptr) now.file = file->fileName;
  return now;
}

void Progress::draw() const {
  if (!draws_ || phase_ == Phase::kEnding) return;
  Console& console = logger->console();
  if (const int room = console.room(); room > 0)
    console.show(progressText(snapshot(), room, charsetOf(console)));
}

void Progress::tell() const {
  const Charset charset = charsetOf(logger->console());
  logger->tell(progressText(snapshot(), std::numeric_limits<int>::max(), charset));
}

void Progress::suspend() {
  logger->console().leave();
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTSTP);
  pthread_kill(pthread_self(), SIGTSTP);
  pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);  // the process stops here
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
}

void tellSummary(const RunCounters& counters, std::chrono::nanoseconds elapsed,
                 std::chrono::nanoseconds source, std::chrono::nanoseconds destination) {
  if (!logger->console().isWatched()) return;
  const StageCounters& last = counters.stages.at(counters.lastStage);
  const auto bytes = static_cast<double>(last.bytes.get());
  const double seconds = std::max(secondsOf(elapsed), 1e-9);
  const bool forSource = source >= destination;
  const char* const side = forSource ? "source" : counters.writes ? "destination" : "checksum";
  const double waited = secondsOf(forSource ? source : destination);
  // At the level of the last line.
  logger->log(kWarning, msg::kManagerSummary, bytesText(bytes), last.files.get(), durationText(seconds),
              bytesText(bytes / seconds), side,
              static_cast<std::int32_t>(std::lround(100 * waited / seconds)));
}

}  // namespace tamrix
