// The three kinds of stage. Each owns the loop that moves buffers through the ring for its kind and calls one
// operation per buffer, which the concrete stages override.
//
// What all three have in common: a stage ends its thread with exitCode 0 after it has passed on the buffer
// marked endOfData, and with another code after a failure; the others then learn of it from the stop flag.
// What ends a stage is logged at kUrgent by the operation that failed.
#pragma once

#include <cstdint>

#include "pipeline/stage/module.h"

namespace tamrix {

// Fills buffers. A failure stops the pipeline.
class ReaderModule : public Module {
 public:
  ReaderModule(PipelineGlobals& globals, const RunOptions& options);
  ~ReaderModule() override;

  void run() override;

  // Fills `slot`. Returns 0, or non-zero after logging why and stopping the pipeline.
  [[nodiscard]] virtual int fillBuffer(BufferSlot& slot);

 private:
  [[nodiscard]] int fillBuffers();
};

// Looks at or marks filled buffers. A failure stops the pipeline.
class ProcessModule : public Module {
 public:
  ProcessModule(PipelineGlobals& globals, const RunOptions& options, std::string name);
  ~ProcessModule() override;

  void run() override;

  // Handles a buffer with data (length 0 or more). Returns 0, or non-zero after logging why.
  [[nodiscard]] virtual int processBuffer(BufferSlot& slot);
};

// Empties buffers and counts files. A failure stops the pipeline.
class WriterModule : public Module {
 public:
  WriterModule(PipelineGlobals& globals, const RunOptions& options);
  ~WriterModule() override;

  void run() override;

  // Handles a buffer with data (length 0 or more). Returns 0, or non-zero after logging why.
  [[nodiscard]] virtual int emptyBuffer(BufferSlot& slot);

 protected:
  // Called on the stage's thread when the loop has ended, for whatever reason.
  virtual void finish() {}
};

}  // namespace tamrix
