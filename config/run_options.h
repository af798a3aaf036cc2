// The options of a run as its parts use them: read once from the store, then handed down.
#pragma once

#include <cstdint>
#include <string>

namespace tamrix {

class Properties;

enum class VerifyMode : std::int32_t { kNotSet = 0, kFail = 1, kWarn = 2 };
enum class ChecksumUpdateMode : std::int32_t { kNotSet = 0, kCalcOnly = 1, kNewOnly = 2, kUpdateAll = 3 };
enum class AuditMode { kNone, kTape, kFiles, kOther };

// A plain record: made by readRunOptions, constant while stages run, so any thread may read it.
// A text is empty when its option is not set or empty. Sizes are kept as text: the ring judges them.
struct RunOptions {
  std::string srcpath;
  std::string srcspec;
  std::string dstpath;
  std::string batchfile;
  bool recursive = false;
  bool interactive = false;
  bool sparse = false;
  bool ignoreVendorCheck = false;
  // No program has an option for it. Tests switch the listing's comparison of pairs off, to see that the
  // comparison at a file's opening protects it, too.
  bool compareWhenListing = true;

  std::string totalBufferSize;
  std::string bufferSize;
  std::string bufferFile;  // empty: buffers in memory

  AuditMode audit = AuditMode::kNone;
  VerifyMode verify = VerifyMode::kNotSet;
  ChecksumUpdateMode checksumUpdate = ChecksumUpdateMode::kNotSet;
  bool asksForChecksum = false;   // "verify" or "checksum-update" has a value, whatever it is
  std::string checksum;           // the algorithm
  std::string checksumAttribute;  // "checksumea": the extended attribute that carries the checksum
};

enum class MapMode { kAuto, kOn, kOff };

// What only the audit program has. Read separately, so that the traces of other programs don't show it.
struct AuditOptions {
  bool requireChecksum = false;
  std::string report;  // empty: none
  MapMode map = MapMode::kOff;
};
AuditOptions readAuditOptions(const Properties& store);

// What only the plan program has.
struct PlanOptions {
  bool missing = false;  // leave out what is at the destination already
  std::string drive;     // the generation, as drive/tape_drive.h names it
  std::string output;    // this and the next two: empty: none
  std::string split;
  std::string report;
};
PlanOptions readPlanOptions(const Properties& store);

// Reads every option; the store traces each look-up at kDebug.
RunOptions readRunOptions(const Properties& store);

}  // namespace tamrix
