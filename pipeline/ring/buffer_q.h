// The ring of buffers that all stages of a copy share, and the pool behind it.
//
// Every buffer (slot) of the ring is at any time owned by exactly one module. Modules are numbered 0..N-1 in
// pipeline order, 0 is the reader, and each owns a contiguous run of slots, its `head` to its `tail`:
//
//      slot     0   1   2   3   4   5   6   7
//             [ w   w ][ r   r   r   r   r ][ w ]      N = 2: reader 0, writer 1
//               :   tail head           tail head
//               :    1    0              0    1
//
// Putting a slot moves nothing: the successor's run grows by the slot, the own run shrinks by it. The module
// after the last is module 0, so an emptied slot is the reader's again. Slots travel strictly in ring order,
// so every stage sees the buffers in the order in which the reader filled them.
//
// Starved and fed. A module without slots is starved (`head` is kStarved) and waits on its predecessor's
// condition. Only the predecessor's put feeds it, by setting its head, and wakes it; a module that is not
// starved finds its grown run by itself. A module becomes starved only by its own put of the last slot it
// owned. Whom a put feeds is woken when it has work for a while, which is ReaderLead's to say, or when the one
// who feeds it must wait itself, so that nothing that can be worked on waits for long.
//
// Lead. How far the reader may be ahead of the last stage, and when it is woken, is ReaderLead's to say.
// While it is kept back it waits like a starved stage, though it owns slots. Buffers are handed out most
// recently used first, so that a short lead also touches little of the pool.
//
// End of data. The reader marks the last buffer of the run with endOfData. Every module reads that mark
// before it puts the slot (afterwards the slot is the successor's), passes it on, and ends.
//
// Stopping. A module that asks for a slot when the stop flag is set gets none. One that waits is woken by
// wakeAll, which whoever waits for the stages calls when the flag is set. It also looks at the flag at the
// end of each wait round (5 seconds; tests take milliseconds); a round that ends without a stop only starts
// the next one, however long a tape takes.
//
// Locking. One mutex guards all positions, for the few instructions that move a head or tail; each module
// has a condition variable of its own. Log lines are written inside it, so the logger's mutex comes after
// the ring's. A slot's fields need no lock: they are its owner's, and handing over takes the mutex.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "log/mutex.h"
#include "pipeline/ring/reader_lead.h"
#include "pipeline/ring/stop_flag.h"

namespace tamrix {

struct FileC;
struct RunOptions;

// One buffer with its header. All zero until the slot is handed out for the first time.
struct BufferSlot {
  std::int32_t capacity;       // size of the buffer in bytes
  std::int32_t length;         // bytes it stands for; negative: none, stages pass the slot on untouched
  std::uint32_t bufferId;      // index in the ring
  std::uint32_t nextModuleId;  // the module to which it was last passed
  std::uint64_t offset;        // position of its first byte in the source file
  std::uint64_t segment;       // buffer-file mode: offset of its segment in the buffer file
  std::uint8_t startOfFile;    // 1: first buffer of a file
  std::uint8_t endOfFile;      // 1: last buffer of a file
  std::uint8_t endOfData;      // 1: last buffer of the run
  std::uint8_t sparseBlock;    // 1: all of its data is zero (set by the sparse stage, cleared by the reader)
  std::uint8_t hole;           // 1: `length` zeros, any number, not read; stages must not look at data
  std::int32_t bufferFd;       // buffer-file mode: descriptor of the buffer file
  FileC* file;                 // whose data it holds
  char* data;  // the buffer, mapped from get to put in buffer-file mode; null in a hole passed on
};

// Threads: createQ and the destructor on the main thread while no stage runs; getBufferSlot and putBufferSlot
// from any stage's thread, each for its own module; wakeAll from any thread.
// Lifetime: outlives the stage threads; the module manager makes one per run.
class BufferQ {
 public:
  static constexpr std::uint32_t kStarved = ~std::uint32_t{0};
  static constexpr int kMaxModules = 4;
  enum class Mode { kMemory = 0, kBufferFile = 1 };

  // `waitRound`: how long a starved module waits before it looks at the stop flag.
  explicit BufferQ(std::chrono::milliseconds waitRound = std::chrono::seconds(5)) : waitRound_(waitRound) {}
  ~BufferQ();
  BufferQ(const BufferQ&) = delete;
  BufferQ& operator=(const BufferQ&) = delete;

  // Builds the ring for `moduleCount` (1 to kMaxModules) modules from the options totalBufferSize (at most
  // 4 GiB), bufferSize (at most 1 GiB and the total) and bufferFile. Memory is reserved, not touched. `stop`
  // must outlive the ring. Returns 0, or 1 after logging what can't be had at kUrgent.
  [[nodiscard]] int createQ(int moduleCount, const StopFlag& stop, const RunOptions& options);

  // Waits until `moduleId` owns a slot and hands out the first one. Returns 0; -1 when the stop flag was set
  // already; 1 when it was found set after a wait, or when a buffer file's segment can't be mapped (logged at
  // kUrgent).
  [[nodiscard]] int getBufferSlot(int moduleId, BufferSlot*& slot);

  // Passes `slot` on to the next module. REQUIRES: `slot` is what `moduleId` got last and did not put yet.
  // Returns 0, or 1 when a buffer file's segment can't be unmapped (logged at kUrgent).
  [[nodiscard]] int putBufferSlot(int moduleId, BufferSlot& slot);

  // Wakes every module that waits, so that it looks at the stop flag. REQUIRES: the flag is set.
  void wakeAll();

  // The run of slots that a module owns; `head` is kStarved when it owns none. For looking at a ring, not
  // for deciding anything while stages run.
  struct Run {
    std::uint32_t head;
    std::uint32_t tail;
  };
  Run ownedBy(int moduleId) const;

  // How long a module has waited for slots, in all, up to its last wait's end.
  std::chrono::nanoseconds waited(int moduleId) const;

  std::int32_t bufferCount() const { return bufferCount_; }
  std::int32_t bufferSize() const { return bufferSize_; }
  std::int64_t totalSize() const { return totalSize_; }
  Mode mode() const { return mode_; }

  // Converts the size text of an option into bytes. Returns 0, or -1 after logging the offending part at
  // kUrgent. Sizes beyond 64 bits saturate; negative ones are the caller's to judge.
  [[nodiscard]] static int convertSize(const std::string& text, std::int64_t& bytes);

 private:
  struct ModulePosition {
    std::uint32_t head = kStarved;  // the slot that this module gets next
    std::uint32_t tail = 0;         // the last slot that it may take
    CondVar handedOn;               // the next module waits on it for slots from this one
    bool asleep = false;            // waits on its predecessor's, and was not woken yet
    std::chrono::nanoseconds waited{0};
  };
  struct Freer {
    void operator()(void* memory) const { std::free(memory); }
  };

  // Creation and destruction: buffer_pool.cpp.
  [[nodiscard]] int readSizes(const RunOptions& options);
  [[nodiscard]] int allocateSlots();
  [[nodiscard]] int setupMem();
  bool reserveFreeList();
  [[nodiscard]] int setupFile(const std::string& path);
  void teardownMem();

  ModulePosition& position(int moduleId) TAMRIX_REQUIRES(mutex_) {
    return positions_[static_cast<std::size_t>(moduleId)];
  }
  const ModulePosition& position(int moduleId) const TAMRIX_REQUIRES(mutex_) {
    return positions_[static_cast<std::size_t>(moduleId)];
  }
  bool mayGet(int moduleId) const TAMRIX_REQUIRES(mutex_);
  void measureReader() TAMRIX_REQUIRES(mutex_);
  bool shouldWake(int moduleId) const TAMRIX_REQUIRES(mutex_);
  CondVar* wakes(int moduleId) TAMRIX_REQUIRES(mutex_);
  std::uint32_t slotsOf(const ModulePosition& position) const;
  void accountTransfer(int fromModule, BufferSlot& slot) TAMRIX_REQUIRES(mutex_);
  int predecessor(int moduleId) const { return (moduleCount_ + moduleId - 1) % moduleCount_; }
  int successor(int moduleId) const { return (moduleId + 1) % moduleCount_; }
  [[nodiscard]] int waitForSlot(int moduleId) TAMRIX_REQUIRES(mutex_);
  CondVar* handOver(int moduleId, BufferSlot& slot);
  void prepareSlot(BufferSlot& slot, std::uint32_t index) TAMRIX_REQUIRES(mutex_);
  [[nodiscard]] int mapSlot(BufferSlot& slot) const;
  [[nodiscard]] int unmapSlot(BufferSlot& slot) const;
  void dump() const TAMRIX_REQUIRES(mutex_);

  const std::chrono::milliseconds waitRound_;

  // Set by createQ, constant while stages run.
  int moduleCount_ = 0;
  const StopFlag* stop_ = nullptr;
  Mode mode_ = Mode::kMemory;
  std::int32_t bufferCount_ = 0;
  std::int32_t bufferSize_ = 0;    // bytes
  std::int64_t totalSize_ = 0;     // bytes, as configured
  std::uint64_t segmentSize_ = 0;  // buffer-file mode: a buffer's share of the file, in whole pages
  std::unique_ptr<BufferSlot[], Freer> slots_;
  char* memory_ = nullptr;  // memory mode: all buffers in one mapping
  std::int32_t bufferFd_ = -1;
  std::string bufferFile_;

  mutable Mutex mutex_;
  std::array<ModulePosition, kMaxModules> positions_ TAMRIX_GUARDED_BY(mutex_);  // by module id
  ReaderLead lead_ TAMRIX_GUARDED_BY(mutex_);
  std::vector<char*> freeBuffers_ TAMRIX_GUARDED_BY(mutex_);  // used before and free, the latest last
  std::uint32_t unusedFrom_ TAMRIX_GUARDED_BY(mutex_) = 0;    // buffers from here on were never used
};

}  // namespace tamrix
