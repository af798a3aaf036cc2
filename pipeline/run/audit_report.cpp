#include "pipeline/run/audit_report.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include "log/logger.h"
#include "reader/list/copy_list.h"
#include "reader/record/extent.h"

namespace tamrix {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::array<const char*, kAuditResults> kResultWords = {"not_read", "pass", "fail", "not_possible"};

std::int64_t number(Blocks blocks) {
  constexpr Blocks kMost = std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(std::clamp<Blocks>(blocks, 0, kMost));
}

// Every byte that is not printable ASCII, and '%', as %XX.
std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > ' ' && byte < 0x7F && c != '%') {
      result += c;
    } else {
      result += {'%', "0123456789ABCDEF"[byte >> 4U], "0123456789ABCDEF"[byte & 0xFU]};
    }
  }
  return result;
}

// The line, in which text that is no UTF-8 is shown with replacement characters; such a text is followed by a
// field NAME_escaped that has all of its bytes.
std::string lineOf(const Json& line) {
  try {
    return line.dump();
  } catch (const Json::type_error&) {
    Json whole;
    for (const auto& [name, value] : line.items()) {
      whole[name] = value;
      if (!value.is_string()) continue;
      try {
        (void)value.dump();
      } catch (const Json::type_error&) {
        whole[name + "_escaped"] = escaped(value.get<std::string>());
      }
    }
    return whole.dump(-1, ' ', false, Json::error_handler_t::replace);
  }
}

Json linesOf(const PartitionLayout& partition) {
  return {{"partition", escaped(std::string(1, partition.letter))},
          {"files", partition.files},
          {"bytes", partition.bytes},
          {"blocks_to_end", number(partition.end)},
          {"gaps", partition.gaps},
          {"gap_blocks", number(partition.gapBlocks)},
          {"largest_gap", number(partition.largestGap)},
          {"reclaimable_percent", partition.reclaimablePercent()},
          {"out_of_name_order", partition.outOfNameOrder}};
}

}  // namespace

AuditReport::AuditReport(AuditMode mode, std::string path, std::string checksumAttribute)
    : mode_(mode), path_(std::move(path)), checksumAttribute_(std::move(checksumAttribute)) {}

AuditReport::~AuditReport() {
  if (file_ != nullptr) (void)std::fclose(file_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

int AuditReport::open(const CopyList& list) {
  struct stat there {};
  if (lstat(path_.c_str(), &there) == 0) {
    if (!S_ISREG(there.st_mode)) return fail(S_ISDIR(there.st_mode) ? EISDIR : EINVAL);
    // By path: an audited file behind a second name keeps that name's content.
    char* const real = realpath(path_.c_str(), nullptr);
    const std::string target = real != nullptr ? real : path_;
    std::free(real);
    const auto isTarget = [&](const Extent* extent) {
      return extent->file->srcPath == target || extent->file->srcPath == path_;
    };
    if (std::any_of(list.extents().begin(), list.extents().end(), isTarget)) return fail(EEXIST);
  }
  std::string name = path_ + ".XXXXXX";
  const int fd = mkostemp(name.data(), O_CLOEXEC);
  if (fd < 0) return fail(errno);
  temporary_ = name;
  const mode_t mask = umask(0);
  umask(mask);
  if (fchmod(fd, 0666 & ~mask) != 0 || (file_ = fdopen(fd, "w")) == nullptr) {
    const int error = errno;
    close(fd);
    return fail(error);
  }
  return 0;
}

int AuditReport::add(const Extent& extent, const TapeLayout::Place* place) {
  const FileC& file = *extent.file;
  Json line = {{"path", file.srcPath}, {"bytes", file.fileSize}};
  if (place == nullptr || place->isKnown) {
    if (extent.partition != '?') {
      line["partition"] = escaped(std::string(1, static_cast<char>(extent.partition)));
      line["block"] = extent.startBlock;
    }
  }
  if (place != nullptr) {
    line["blocks"] = number(place->blocks);
    if (place->isKnown) line["gap_before"] = number(place->gap);
  }
  if (mode_ == AuditMode::kFiles) {
    line["result"] = kResultWords.at(static_cast<std::size_t>(file.auditResult));
    if (const auto stored = file.eaList.find(checksumAttribute_); stored != file.eaList.end()) {
      line["stored"] = (*stored).value == nullptr ? "" : std::string((*stored).value, (*stored).valueLength);
    }
    if (file.auditResult != AuditResult::kNotRead) line["computed"] = file.checksum;
  }
  return writeLine(line);
}

int AuditReport::complete(const AuditSums& sums, const TapeLayout* layout) {
  Json line = {
      {"sums", true}, {"status", logger->returnCode()}, {"files", sums.files}, {"bytes", sums.bytes}};
  if (mode_ == AuditMode::kFiles) {
    line["attribute"] = checksumAttribute_;
    for (std::size_t i = 0; i < kAuditResults; ++i) line[kResultWords.at(i)] = sums.results.at(i);
  }
  if (layout != nullptr) {
    line["block_size"] = layout->blockSize();
    line["without_position"] = layout->filesWithoutPosition();
    line["partitions"] = Json::array();
    for (const PartitionLayout& partition : layout->partitions()) {
      line["partitions"].push_back(linesOf(partition));
    }
  }
  if (writeLine(line) != 0) return 1;
  if (std::fflush(file_) != 0 || fsync(fileno(file_)) != 0) return fail(errno);
  const int closed = std::fclose(std::exchange(file_, nullptr));
  if (closed != 0 || std::rename(temporary_.c_str(), path_.c_str()) != 0) return fail(errno);
  temporary_.clear();
  return 0;
}

template <class Line>
int AuditReport::writeLine(const Line& line) {
  const std::string text = lineOf(line) + "\n";
  if (std::fwrite(text.data(), 1, text.size(), file_) == text.size()) return 0;
  return fail(errno);
}

int AuditReport::fail(int error) {
  logger->log(kUrgent, msg::kManagerReportFailed, path_, std::strerror(error));
  return 1;
}

}  // namespace tamrix
