// The ring at work; buffer_pool.cpp makes and frees it.
#include "pipeline/ring/buffer_q.h"

#include <sys/mman.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <utility>

#include "log/logger.h"

namespace tamrix {

namespace {

// Slot indexes as the catalogue's %d shows them: starved reads -1.
std::int32_t shown(std::uint32_t index) { return static_cast<std::int32_t>(index); }

}  // namespace

int BufferQ::getBufferSlot(int moduleId, BufferSlot*& slot) {
  if (logger->level() <= kDebug) {
    logger->log(kDebug, msg::kRingGet, moduleId);
    const Run run = ownedBy(moduleId);
    logger->log(kDebug, msg::kRingGetHeadTail, shown(run.head), shown(run.tail));
    logger->log(kDebug, msg::kRingInputModule, predecessor(moduleId));
  }
  if (stop_->isSet()) {
    logger->log(kDebug, msg::kRingGetStopped);
    return -1;
  }
  {
    const MutexLock lock(mutex_);
    if (moduleId == 0) lead_.leaveOut(lock.waited());
    if (const int result = waitForSlot(moduleId); result != 0) return result;
    const ModulePosition& me = position(moduleId);
    logger->log(kDebug, msg::kRingHandOut, shown(me.head), shown(me.tail), shown(me.head));
    slot = &slots_[me.head];
    if (moduleId == 0) prepareSlot(*slot, me.head);
  }
  return mode_ == Mode::kBufferFile ? mapSlot(*slot) : 0;
}

// Returns 0 once the module owns a slot, 1 when it is to stop instead.
int BufferQ::waitForSlot(int moduleId) {
  if (moduleId == 0) measureReader();
  if (mayGet(moduleId)) return 0;
  const auto start = std::chrono::steady_clock::now();
  while (!mayGet(moduleId)) {
    // Nobody else would wake those whom this module has fed.
    const int nextId = successor(moduleId);
    if (mayGet(nextId)) {
      if (CondVar* const toWake = wakes(nextId); toWake != nullptr) toWake->notifyAll();
    }
    const auto begun = std::chrono::steady_clock::now();
    logger->log(kDebug, msg::kRingStarved, moduleId);
    position(moduleId).asleep = true;
    // A stop that came since the slot was asked for may have woken the others already.
    const auto woken = stop_->isSet()
                           ? CondVar::Wake::kSignalled
                           : position(predecessor(moduleId)).handedOn.waitUntil(mutex_, begun + waitRound_);
    position(moduleId).asleep = false;
    position(moduleId).waited += std::chrono::steady_clock::now() - begun;
    logger->log(kDebug, msg::kRingResume, moduleId);
    if (woken == CondVar::Wake::kTimedOut) {
      const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(waitRound_).count();
      logger->log(kDebug, msg::kRingWaitTimedOut, static_cast<std::int32_t>(seconds), moduleId);
      if (logger->level() == kDebug) logger->output(msg::kRingTimeoutNotice, moduleId);
    }
    if (stop_->isSet()) {
      logger->log(kDebug, msg::kRingWaitStopped);
      return 1;
    }
  }
  if (moduleId == 0) lead_.leaveOut(std::chrono::steady_clock::now() - start);
  return 0;
}

void BufferQ::measureReader() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  if (lead_.sampleIsDue(now)) lead_.takeSample(ThreadUsage::now());
}

int BufferQ::putBufferSlot(int moduleId, BufferSlot& slot) {
  logger->log(kDebug, msg::kRingPut, shown(slot.bufferId), moduleId);
  // Outside the lock, as is the waking: both take longer than all that the lock is held for.
  if (mode_ == Mode::kBufferFile && unmapSlot(slot) != 0) return 1;
  CondVar* const toWake = handOver(moduleId, slot);
  if (toWake != nullptr) toWake->notifyAll();
  return 0;
}

// Does what a put does to the positions. Returns the condition to be signalled outside the lock, if any.
CondVar* BufferQ::handOver(int moduleId, BufferSlot& slot) {
  const int nextId = successor(moduleId);
  slot.nextModuleId = static_cast<std::uint32_t>(nextId);

  const MutexLock lock(mutex_);
  if (moduleId == 0) lead_.leaveOut(lock.waited());
  dump();
  ModulePosition& me = position(moduleId);
  ModulePosition& next = position(nextId);
  assert(&slots_[me.head] == &slot);
  const bool wasLast = me.head == me.tail;
  const bool isEnd = slot.endOfData != 0;
  accountTransfer(moduleId, slot);

  next.tail = me.head;
  logger->log(kDebug, msg::kRingNext, nextId, shown(me.head), shown(slot.bufferId));
  if (next.head == kStarved) {
    logger->log(kDebug, msg::kRingNextStarved, nextId);
    next.head = next.tail;
    logger->log(kDebug, msg::kRingNextFed, nextId, shown(next.head));
  }
  // A ring of one module passes the slot to itself: it owns all slots, always.
  if (wasLast && nextId != moduleId) {
    logger->log(kDebug, msg::kRingLastSlot, moduleId);
    me.head = kStarved;
  } else {
    me.head = (me.head + 1) % static_cast<std::uint32_t>(bufferCount_);
    logger->log(kDebug, msg::kRingNewHead, shown(me.head));
  }
  dump();
  return isEnd || shouldWake(nextId) ? wakes(nextId) : nullptr;
}

// Whether the module owns a slot and, if it is the reader, has not used up its lead.
bool BufferQ::mayGet(int moduleId) const {
  return position(moduleId).head != kStarved && (moduleId != 0 || lead_.hasRoom());
}

// Whether a module that waits has work for a while.
bool BufferQ::shouldWake(int moduleId) const {
  const std::uint32_t slots = slotsOf(position(moduleId));
  return moduleId == 0 ? lead_.readerShouldWake(slots) : lead_.stageShouldWake(slots);
}

// The condition that wakes the module, null when it doesn't wait or was woken. Whoever asks signals it.
CondVar* BufferQ::wakes(int moduleId) {
  if (!std::exchange(position(moduleId).asleep, false)) return nullptr;
  return &position(predecessor(moduleId)).handedOn;
}

// Keeps account of the reader's lead, to which holes add nothing, and of the buffers that are free again.
void BufferQ::accountTransfer(int fromModule, BufferSlot& slot) {
  const std::int64_t bytes = slot.hole != 0 ? 0 : std::max(slot.length, 0);
  const bool isBack = successor(fromModule) == 0;
  if (fromModule == 0) lead_.filled(bytes);
  if (isBack) lead_.emptied(bytes);
  // What stands for a hole needs no buffer.
  if (mode_ == Mode::kMemory && slot.data != nullptr && (isBack || slot.hole != 0)) {
    freeBuffers_.push_back(std::exchange(slot.data, nullptr));
  }
}

// With the mutex: a module that has seen the flag clear is in its wait by then.
void BufferQ::wakeAll() {
  const MutexLock lock(mutex_);
  for (ModulePosition& module : positions_) module.handedOn.notifyAll();
}

std::uint32_t BufferQ::slotsOf(const ModulePosition& position) const {
  const auto count = static_cast<std::uint32_t>(bufferCount_);
  return position.head == kStarved ? 0 : (position.tail + count - position.head) % count + 1;
}

BufferQ::Run BufferQ::ownedBy(int moduleId) const {
  const MutexLock lock(mutex_);
  return {position(moduleId).head, position(moduleId).tail};
}

std::chrono::nanoseconds BufferQ::waited(int moduleId) const {
  const MutexLock lock(mutex_);
  return position(moduleId).waited;
}

// Slots are set up when first handed out, and get their buffer whenever the reader takes them: a short copy
// does not touch the whole pool.
void BufferQ::prepareSlot(BufferSlot& slot, std::uint32_t index) {
  if (slot.capacity == 0) {
    slot.bufferId = index;
    slot.capacity = bufferSize_;
    slot.bufferFd = bufferFd_;
    slot.segment = index * segmentSize_;
  }
  if (mode_ != Mode::kMemory || slot.data != nullptr) return;
  if (freeBuffers_.empty()) {
    slot.data = memory_ + static_cast<std::size_t>(unusedFrom_++) * static_cast<std::size_t>(bufferSize_);
  } else {
    slot.data = freeBuffers_.back();
    freeBuffers_.pop_back();
  }
}

int BufferQ::mapSlot(BufferSlot& slot) const {
  logger->log(kDebug, msg::kRingMap, slot.capacity, static_cast<long long>(slot.segment));
  void* const mapped = mmap(nullptr, static_cast<std::size_t>(slot.capacity), PROT_READ | PROT_WRITE,
                            MAP_SHARED, slot.bufferFd, static_cast<off_t>(slot.segment));
  if (mapped == MAP_FAILED) {
    const int error = errno;
    logger->log(kUrgent, msg::kRingMapFailed, std::strerror(error));
    logger->log(kUrgent, msg::kBufferFileFailed, bufferFile_, std::strerror(error));
    return 1;
  }
  slot.data = static_cast<char*>(mapped);
  return 0;
}

int BufferQ::unmapSlot(BufferSlot& slot) const {
  if (munmap(slot.data, static_cast<std::size_t>(slot.capacity)) != 0) {
    const int error = errno;
    logger->log(kUrgent, msg::kRingUnmapFailed, std::strerror(error));
    logger->log(kUrgent, msg::kBufferFileFailed, bufferFile_, std::strerror(error));
    return 1;
  }
  slot.data = nullptr;
  return 0;
}

void BufferQ::dump() const {
  if (logger->level() > kDebug) return;
  for (int id = 0; id < moduleCount_; ++id) {
    logger->log(kDebug, msg::kRingDump, id, shown(position(id).head), shown(position(id).tail));
  }
}

}  // namespace tamrix
