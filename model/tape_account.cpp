#include "model/tape_account.h"

#include <chrono>
#include <thread>

namespace tamrix::model {

void Account::locate(const std::string& path, const Position& position, std::int64_t offset) {
  const std::int64_t to = position.block * blockSize_ + offset;
  if (path != path_ || position.partition != partition_ || to != offset_) endRead();
  path_ = path;
  if (!follows(position.partition, to, offset == 0)) {
    const double seconds =
        drive_.locateSeconds(drive_.place(partition_, offset_), drive_.place(position.partition, to));
    lines_ += "locate " + std::to_string(seconds) + ' ' + path + '\n';
    ++locates_;
    spend(seconds);
  }
  partition_ = position.partition;
  offset_ = to;
}

void Account::read(std::int64_t count) {
  const double seconds = drive_.streamSeconds(drive_.place(partition_, offset_), count);
  spend(seconds);
  offset_ += count;
  count_ += count;
  readSeconds_ += seconds;
}

std::string Account::finish() {
  endRead();
  return lines_ + "total " + std::to_string(locates_) + ' ' + std::to_string(bytes_) + ' ' +
         std::to_string(seconds_) + '\n';
}

// Whether the drive comes to `to` by reading on. A file's last block may be shorter than the others; the
// next one follows it all the same.
bool Account::follows(char partition, std::int64_t to, bool beginsFile) const {
  const std::int64_t nextBlock = (offset_ + blockSize_ - 1) / blockSize_ * blockSize_;
  return partition == partition_ && (to == offset_ || (beginsFile && to == nextBlock));
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

void Account::spend(double seconds) {
  seconds_ += seconds;
  if (delay_ > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds * delay_));
}

}  // namespace tamrix::model
