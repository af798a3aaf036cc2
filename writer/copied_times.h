// Giving a finished copy the times of its source.
#pragma once

#include <sys/types.h>

#include <ctime>

#include "reader/record/file_c.h"
#include "reader/record/unique_fd.h"

namespace tamrix {

// The time that a copy is given for `time` of its source: to the microsecond.
timespec copiedTime(timespec time);

// Purpose: tells on which devices closing a file may set its modification time. Asks the system once as long
// as the device stays the same. Threads: one. Lifetime: any.
class TimesAtClose {
 public:
  // Whether the close of `fd`, on `device`, may change the times set before.
  bool mayChange(int fd, dev_t device);

 private:
  dev_t device_ = 0;
  bool isKnown_ = false;
  bool mayChange_ = true;
};

// Purpose: sets the access and modification time of one copy, to the microsecond. Works on the open file, as
// its name may lead to another one by the time it is complete. Threads: one. Lifetime: around the file's
// close.
class CopiedTimes {
 public:
  // To be called before `fd` is closed.
  CopiedTimes(int fd, const FileC& file, TimesAtClose& atClose);
  // To be called after it. Returns 0, or the error number with which the times were refused.
  [[nodiscard]] int finish();

 private:
  const FileC& file_;
  UniqueFd itself_;  // stays open over the close; only where the times must be set after it
  int error_ = 0;
};

}  // namespace tamrix
