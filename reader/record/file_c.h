// The record of one source file: what the listing found, and where each stage stands with it.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "reader/record/extended_attr.h"
#include "reader/record/file_identity.h"

namespace tamrix {

// How a file fared in a file audit.
enum class AuditResult : std::uint8_t { kNotRead, kPass, kFail, kNotPossible };
inline constexpr std::size_t kAuditResults = 4;

// Purpose: what buffers in flight point at. Made by the copy list, one per accepted file.
// Threads: the groups below say which stage's thread may touch a field; the ring orders the stages.
// Lifetime: owned by the copy list, longer than any buffer or stage that points at it.
struct FileC {
  // `status` is what stat(2) told of `source` when it was listed.
  FileC(std::string source, std::string destination, const struct stat& status);
  FileC(const FileC&) = delete;
  FileC& operator=(const FileC&) = delete;

  // Constant once the file is listed.
  const std::string srcPath;
  const std::string dstPath;
  const char* const fileName;   // the base name, in srcPath
  const std::int64_t fileSize;  // bytes
  const struct timespec accessTime;
  const struct timespec modifyTime;
  const std::uint32_t fileMode;  // st_mode
  const FileIdentity listed;     // the file that srcPath meant
  EaList eaList;                 // the source's user attributes, in the file system's order

  // Reader stage only.
  std::int64_t bytesRead = 0;
  std::int64_t readOffset = 0;  // of the next byte to read
  std::int32_t fd = -1;
  bool isOpen = false;
  bool mayHaveHoles = false;  // while open: it is asked for them, and read by position

  // Writer stage only: the file that dstPath meant when it was opened.
  FileIdentity written;

  // Checksum stage only.
  std::string checksum;  // as text, once the last byte has passed
  AuditResult auditResult = AuditResult::kNotRead;

  // Copies the value of the attribute `name`, taken as text, into `value` and returns 0; 1 when there is
  // none, or when name or value break the limits (name 1 to 255 characters, value 1 to 255), which is logged.
  // Kept: the messages are the ones of attribute writing, and a long value is reported by the name's length.
  [[nodiscard]] int getEA(const std::string& name, std::string& value) const;
};

}  // namespace tamrix
