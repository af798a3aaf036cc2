#include "model/tape_account.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace tamrix::model {

void Account::locate(const std::string& path, const Position& position, std::int64_t offset) {
  if (path != path_ || !time_.isAt(position.partition, position.block, offset)) endRead();
  path_ = path;
  const std::optional<double> seconds = time_.locate(position.partition, position.block, offset);
  if (!seconds) return;
  lines_ += "locate " + std::to_string(*seconds) + ' ' + path + '\n';
  spend(*seconds);
}

void Account::read(std::int64_t count) {
  const double seconds = time_.read(count);
  spend(seconds);
  count_ += count;
  readSeconds_ += seconds;
}

std::string Account::finish() {
  endRead();
  return lines_ + "total " + std::to_string(time_.locates()) + ' ' + std::to_string(bytes_) + ' ' +
         std::to_string(time_.seconds()) + '\n';
}

void Account::endRead() {
  // path_ is still that of the file that was read.
  if (count_ != 0) {
    lines_ += "read " + std::to_string(count_) + ' ' + std::to_string(readSeconds_) + ' ' + path_ + '\n';
  }
  bytes_ += count_;
  count_ = 0;
  readSeconds_ = 0;
}

// A drive reads ahead into its buffer, so what the host takes between two reads costs nothing, nor does a sleep
// that lasts longer than it was to.
void Account::spend(double seconds) {
  if (delay_ <= 0) return;
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kAhead(200);
  const std::chrono::duration<double> time(seconds * delay_);
  busyUntil_ = std::max(busyUntil_, Clock::now() - kAhead) + std::chrono::duration_cast<Clock::duration>(time);
  std::this_thread::sleep_until(busyUntil_);
}

}  // namespace tamrix::model
