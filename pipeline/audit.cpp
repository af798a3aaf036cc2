#include "pipeline/audit.h"

#include <sys/vfs.h>
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

#include "config/properties.h"
#include "log/logger.h"
#include "reader/copy_list.h"

namespace tamrix {

namespace {

constexpr std::size_t kValueSize = 500;

// The number of blocks that hold `bytes`.
std::int64_t blocksOf(std::int64_t bytes, std::int32_t blockSize) {
  return bytes / blockSize + (bytes % blockSize != 0 ? 1 : 0);
}

}  // namespace

Audit::Audit(PipelineGlobals& /*globals*/) { logger->log(kDebug, msg::kAuditConstructor); }

int Audit::report(const CopyList& list) const {
  const char* path = nullptr;
  properties->getProperty("srcpath", path);
  std::int32_t blockSize = 0;
  if (readBlockSize(path, blockSize) != 0) return 1;
  if (list.extents().empty()) {
    logger->log(kUrgent, msg::kAuditNoFiles);
    return 1;
  }
  std::int64_t expectedBlock = 0;
  std::int64_t usedBlocks = 0;
  for (const Extent* extent : list.extents()) {
    const std::int64_t blocks = blocksOf(extent->file->fileSize, blockSize);
    reportFile(*extent, blocks, expectedBlock);
    usedBlocks += blocks;
  }
  reportSummary(list, path, usedBlocks, blockSize);
  return 0;
}

int Audit::readBlockSize(const char* path, std::int32_t& blockSize) {
  std::array<char, kValueSize> value{};
  if (getxattr(path, "user.ltfs.volumeBlocksize", value.data(), value.size() - 1) < 0 &&
      getxattr(path, "user.ltfs.volume_blocksize", value.data(), value.size() - 1) < 0) {
    logger->log(kUrgent, msg::kAuditNoBlockSize, path);
    return 1;
  }
  blockSize = static_cast<std::int32_t>(std::strtol(value.data(), nullptr, 10));
  logger->log(kDebug, msg::kAuditBlockSize, blockSize);
  if (blockSize > 0) return 0;
  logger->log(kUrgent, msg::kAuditBadBlockSize, value.data(), path);
  return 1;
}

void Audit::reportFile(const Extent& extent, std::int64_t blocks, std::int64_t& expectedBlock) {
  if (extent.startBlock == expectedBlock) {
    expectedBlock += blocks;
  } else if (extent.file->fileSize != 0) {
    logger->log(kInfo, msg::kAuditGap,
                logger->format(msg::kAuditGapText, expectedBlock, extent.startBlock,
                               extent.startBlock - expectedBlock));
    expectedBlock = extent.startBlock + blocks;
  }
  logger->log(kInfo, msg::kAuditFile,
              logger->format(msg::kAuditFileText, extent.file->fileName, static_cast<char>(extent.partition),
                             extent.startBlock, extent.byteCount, blocks, extent.offset));
}

void Audit::reportSummary(const CopyList& list, const char* path, std::int64_t usedBlocks,
                          std::int32_t blockSize) {
  const Extent& first = *list.extents().front();
  const Extent& last = *list.extents().back();
  struct statfs fileSystem {};
  if (statfs(first.file->srcPath.c_str(), &fileSystem) != 0) {
    const int error = errno;
    logger->log(kDebug, msg::kAuditStatfsFailed, std::strerror(error));
    fileSystem = {};
  }
  logger->log(kDebug, msg::kAuditBlocks, fileSystem.f_blocks, fileSystem.f_bfree);
  const std::int64_t usedMegabytes =
      blockSize / 1024 * static_cast<std::int64_t>(fileSystem.f_blocks - fileSystem.f_bfree) / 1024;
  // Kept: the text says bytes.
  logger->log(kDebug, msg::kAuditBytesWritten, usedMegabytes);

  // Kept: the last file's size is rounded down and one block added, so a last file of whole blocks counts one
  // block more than it has.
  const std::int64_t lastEnd = last.startBlock + last.file->fileSize / blockSize + 1;
  const std::int64_t span = lastEnd - first.startBlock;
  if (span == 0) {
    logger->log(kWarning, msg::kAuditNoSpan);
    return;
  }
  const auto percentage = static_cast<std::int32_t>(100 + 100 * usedBlocks / -span);
  const std::int64_t reclaimable = percentage * usedMegabytes / 100;
  const auto files = static_cast<long>(list.extents().size());
  logger->output(msg::kAuditHeader, path, files, span, usedBlocks, reclaimable, percentage);
  logger->log(kInfo, msg::kAuditHeader, path, files, span, usedBlocks, reclaimable, percentage);
}

}  // namespace tamrix
