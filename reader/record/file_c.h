// The record of one source file: what the listing found, and where each stage stands with it.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>

#include "reader/record/extended_attr.h"
#include "reader/record/file_identity.h"
#include "reader/record/file_path.h"

namespace tamrix {

// How a file fared in a file audit.
enum class AuditResult : std::uint8_t { kNotRead, kPass, kFail, kNotPossible };
inline constexpr std::size_t kAuditResults = 4;

// How a file stands in a plan.
enum class PlanResult : std::uint8_t { kCopy, kOverwrite, kPresent, kLeftOut };
inline constexpr std::size_t kPlanResults = 4;

// What a file takes of its file system; see stat(2).
inline std::int64_t allocatedBytes(const struct stat& status) {
  constexpr std::int64_t kStatBlock = 512;
  return status.st_blocks * kStatBlock;
}

// What was at a destination when it was listed.
struct ExistingDestination {
  explicit ExistingDestination(const struct stat& status);

  FileIdentity identity;
  std::int64_t size;       // bytes
  std::int64_t allocated;  // bytes that it takes of its file system
  struct timespec modifyTime;
  std::uint32_t mode;  // st_mode
};

// Purpose: what buffers in flight point at. Made by the copy list, one per accepted file.
// Threads: the groups below say which stage's thread may touch a field; the ring orders the stages.
// Lifetime: owned by the copy list, longer than any buffer or stage that points at it.
struct FileC {
  // `status` is what stat(2) returned for the source when it was listed.
  FileC(const FilePair& paths, const struct stat& status);
  FileC(const FileC&) = delete;
  FileC& operator=(const FileC&) = delete;

  // Constant once the file is listed.
  const FilePath srcPath;
  const FilePath dstPath;
  const char* const fileName;  // the base name of srcPath
  const FileIdentity listed;   // the file that srcPath meant
  // What was at dstPath; null when nothing was, or when the list was not told to keep it.
  const ExistingDestination* existing = nullptr;

  // As listed, or as found by the reader stage when it opens the file; constant from its first buffer on.
  std::int64_t fileSize;  // bytes
  struct timespec accessTime;
  struct timespec modifyTime;
  EaList eaList;  // the source's user attributes, in the file system's order

  // Checksum stage only: as text, once the last byte has passed.
  std::unique_ptr<const std::string> checksum;

  // Writer stage only: the file that dstPath meant when it was opened.
  FileIdentity written;

  // As listed or as found, like fileSize. Small fields stand side by side: that saves 8 bytes a file.
  std::uint32_t fileMode;  // st_mode

  // Set by the reader stage before it passes on the file's last buffer: the source has changed since it was
  // opened.
  bool changedWhileRead = false;

  // The plan only.
  PlanResult planResult = PlanResult::kCopy;

  // Checksum stage only.
  AuditResult auditResult = AuditResult::kNotRead;

  // Copies the value of the attribute `name`, taken as text, into `value` and returns 0; 1 when there is
  // none, or when name or value break the limits (name 1 to 255 characters, value 1 to 255), which is logged.
  // Kept: the messages are the ones of attribute writing, and a long value is reported by the name's length.
  [[nodiscard]] int getEA(const std::string& name, std::string& value) const;
};

}  // namespace tamrix
