// The loops of Module, for the stage bases that run them.
#pragma once

#include <new>

#include "log/logger.h"
#include "pipeline/stage/module.h"

namespace tamrix {

template <class Loop>
int Module::withMemoryGuard(Loop loop) {
  try {
    return loop();
  } catch (const std::bad_alloc&) {
    logger->log(kUrgent, msg::kModuleNoMemory);
    return 1;
  }
}

template <class Action, class Passing>
int Module::consumeBuffers(const ConsumerMessages& messages, Action action, Passing passing) {
  for (;;) {
    BufferSlot* slot = nullptr;
    if (const int got = getSlot(slot); got != 0) {
      if (got == 1) logger->log(kUrgent, messages.getFailed, got);
      return 1;
    }
    logger->log(kDebug, messages.bufferSize, slot->length);
    if (slot->startOfFile != 0) counters().file.store(slot->file, std::memory_order_release);
    if (slot->length >= 0) {
      if (const int handled = action(*slot); handled != 0) {
        logger->log(kUrgent, messages.actionFailed, handled);
        return handled;
      }
    }
    passing(*slot);
    // After the put the slot belongs to the next stage.
    const bool endOfData = slot->endOfData != 0;
    if (const int put = putSlot(*slot); put != 0) {
      logger->log(kUrgent, messages.putFailed, static_cast<std::int32_t>(slot->bufferId), put);
      return put;
    }
    slot = nullptr;
    if (endOfData) {
      logger->log(kProgress, messages.endOfData);
      return 0;
    }
  }
}

}  // namespace tamrix
