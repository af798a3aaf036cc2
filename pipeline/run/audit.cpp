#include "pipeline/run/audit.h"

#include <sys/vfs.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "log/logger.h"
#include "pipeline/ring/stop_flag.h"
#include "reader/list/copy_list.h"

namespace tamrix {

namespace {

constexpr std::size_t kValueSize = 500;

// A number of blocks as the catalogue's %lld shows it.
long long shown(Blocks number) { return static_cast<long long>(number); }

// The decimal number that `text` starts with; 0 when there is none or it needs more than 32 bits.
std::int32_t leadingNumber(const char* text) {
  const long number = std::strtol(text, nullptr, 10);
  return std::in_range<std::int32_t>(number) ? static_cast<std::int32_t>(number) : 0;
}

// Reads the attribute that tells the volume's block size. Returns false when there is none.
bool readBlockSizeText(const char* path, std::array<char, kValueSize>& value) {
  return getxattr(path, "user.ltfs.volumeBlocksize", value.data(), value.size() - 1) >= 0 ||
         getxattr(path, "user.ltfs.volume_blocksize", value.data(), value.size() - 1) >= 0;
}

}  // namespace

bool findBlockSize(const std::string& path, std::int32_t& blockSize) {
  std::array<char, kValueSize> value{};
  if (!readBlockSizeText(path.c_str(), value)) return false;
  blockSize = leadingNumber(value.data());
  return blockSize > 0;
}

Audit::Audit(const RunOptions& options, const StopFlag& stop) : options_(options), stop_(stop) {
  logger->log(kDebug, msg::kAuditConstructor);
}

int Audit::report(const CopyList& list) const {
  std::int32_t blockSize = 0;
  if (readBlockSize(blockSize) != 0) return 1;
  Blocks expectedBlock = 0;
  Blocks usedBlocks = 0;
  for (const Extent* extent : list.extents()) {
    if (stop_.isSet()) return 1;
    const std::int64_t size = extent->file->fileSize;
    const Blocks blocks = size / blockSize + (size % blockSize != 0 ? 1 : 0);
    reportFile(*extent, blocks, expectedBlock);
    usedBlocks += blocks;
  }
  reportSummary(list, usedBlocks, blockSize);
  return 0;
}

int Audit::readBlockSize(std::int32_t& blockSize) const {
  const char* const path = options_.srcpath.c_str();
  std::array<char, kValueSize> value{};
  if (!readBlockSizeText(path, value)) {
    logger->log(kUrgent, msg::kAuditNoBlockSize, path);
    return 1;
  }
  blockSize = leadingNumber(value.data());
  logger->log(kDebug, msg::kAuditBlockSize, blockSize);
  if (blockSize > 0) return 0;
  logger->log(kUrgent, msg::kAuditBadBlockSize, value.data(), path);
  return 1;
}

void Audit::reportFile(const Extent& extent, Blocks blocks, Blocks& expectedBlock) {
  if (extent.startBlock == expectedBlock) {
    expectedBlock += blocks;
  } else if (extent.file->fileSize != 0) {
    // Kept: the first file reports a gap, too, unless it starts at block 0.
    logger->log(kInfo, msg::kAuditGap,
                logger->format(msg::kAuditGapText, shown(expectedBlock), extent.startBlock,
                               shown(extent.startBlock - expectedBlock)));
    expectedBlock = extent.startBlock + blocks;
  }
  logger->log(kInfo, msg::kAuditFile,
              logger->format(msg::kAuditFileText, extent.file->fileName, static_cast<char>(extent.partition),
                             extent.startBlock, extent.byteCount, shown(blocks), extent.offset));
}

void Audit::reportSummary(const CopyList& list, Blocks usedBlocks, std::int32_t blockSize) const {
  const auto& extents = list.extents();
  const std::string& path = options_.srcpath;
  struct statfs fileSystem {};
  if (statfs((extents.empty() ? path : extents.front()->file->srcPath.text()).c_str(), &fileSystem) != 0) {
    const int error = errno;
    logger->log(kDebug, msg::kAuditStatfsFailed, std::strerror(error));
    fileSystem = {};
  }
  logger->log(kDebug, msg::kAuditBlocks, fileSystem.f_blocks, fileSystem.f_bfree);
  const auto blocksInUse = static_cast<std::int64_t>(fileSystem.f_blocks - fileSystem.f_bfree);
  const Blocks usedMegabytes = Blocks{blockSize / 1024} * blocksInUse / 1024;
  // Kept: the text says bytes.
  logger->log(kDebug, msg::kAuditBytesWritten, shown(usedMegabytes));

  Blocks span = 0;
  Blocks percentage = 100;  // without files, of all that is in use
  if (!extents.empty()) {
    const Extent& last = *extents.back();
    // Kept: the last file's size is rounded down and one block added, so a last file of whole blocks counts
    // one block more than it has.
    const Blocks lastEnd = Blocks{last.startBlock} + last.file->fileSize / blockSize + 1;
    span = lastEnd - extents.front()->startBlock;
    if (span == 0) {
      logger->log(kWarning, msg::kAuditNoSpan);
      return;
    }
    percentage = 100 + 100 * usedBlocks / -span;
  }
  const Blocks reclaimable = percentage * usedMegabytes / 100;
  const auto files = static_cast<long>(extents.size());
  logger->output(msg::kAuditHeader, path, files, shown(span), shown(usedBlocks), shown(reclaimable),
                 static_cast<std::int32_t>(percentage));
  logger->log(kInfo, msg::kAuditHeader, path, files, shown(span), shown(usedBlocks), shown(reclaimable),
              static_cast<std::int32_t>(percentage));
}

}  // namespace tamrix
