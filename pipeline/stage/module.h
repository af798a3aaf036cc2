// The base of every stage of the pipeline: what all stages share, and the loop of those that take filled
// buffers.
#pragma once

#include <cstdint>
#include <string>

#include "config/run_options.h"
#include "log/message_id.h"
#include "pipeline/ring/buffer_q.h"
#include "pipeline/stage/globals.h"
#include "pipeline/stage/thread.h"

namespace tamrix {

// Threads: constructed, numbered, given the ring, started and joined on the main thread; everything else runs
// on the stage's own thread.
// Lifetime: made for one run, destroyed after its thread was joined; the globals and the ring outlive it.
class Module : public Thread {
 public:
  // Logs the checksum settings of `options`, which must outlive the stage; `name` is the thread's.
  Module(PipelineGlobals& globals, const RunOptions& options, std::string name);
  ~Module() override;

  int moduleId() const { return moduleId_; }
  void setModuleId(int id) {
    moduleId_ = id;
    counters_ = &globals_.counters.stages.at(static_cast<std::size_t>(id));
  }
  void setRing(BufferQ& ring) { ring_ = &ring; }
  // How the stage ended: 0, or the failing operation's code. Read it after join.
  int exitCode() const { return exitCode_; }

  // Compares the checksum of the file in `slot` with the one among the attributes collected from its source
  // (attribute name: option checksumAttribute). Returns 0 when they match, 1 when they differ, 2 when there
  // is nothing to compare with; logs which.
  [[nodiscard]] int verifyChecksum(const BufferSlot& slot) const;

  enum class ChecksumTarget { kSource, kDestination };
  // Stores the checksum of the file in `slot` as an attribute of its source or destination when the update
  // mode asks for it. Returns 0 when done or not asked for, 1 without an attribute name (kUrgent), 2 when the
  // file system refuses it (kWarning).
  [[nodiscard]] int updateChecksum(const BufferSlot& slot, ChecksumTarget target) const;

 protected:
  // The messages by which the loops of process and writer stages differ.
  struct ConsumerMessages {
    MessageId<std::int32_t> getFailed;
    MessageId<std::int32_t> bufferSize;
    MessageId<std::int32_t> actionFailed;
    MessageId<std::int32_t, std::int32_t> putFailed;
    MessageId<> endOfData;
  };

  // Gets, handles and passes on buffers until the end of data has passed. `action(slot)` handles a buffer
  // with data (length 0 or more) and returns 0 or an error code; `passing(slot)` sees every buffer before it
  // is put on. Returns 0 at the end of data, else the failing operation's code; sets no stop flag.
  template <class Action, class Passing>
  [[nodiscard]] int consumeBuffers(const ConsumerMessages& messages, Action action, Passing passing);

  // Runs a stage's loop and returns its code; running out of memory is a failure of the stage (1, logged at
  // kUrgent), so that it ends in good order.
  template <class Loop>
  [[nodiscard]] static int withMemoryGuard(Loop loop);

  BufferQ& ring() { return *ring_; }
  StageCounters& counters() { return *counters_; }

  // As the ring's operations of these names, for this stage, and counted.
  [[nodiscard]] int getSlot(BufferSlot*& slot);
  [[nodiscard]] int putSlot(BufferSlot& slot);

  PipelineGlobals& globals_;
  const RunOptions& options_;
  int exitCode_ = 0;

 private:
  BufferQ* ring_ = nullptr;
  int moduleId_ = -1;
  StageCounters* counters_ = nullptr;
};

}  // namespace tamrix
