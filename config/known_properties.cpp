#include "config/known_properties.h"

#include <algorithm>
#include <array>

#include "log/logger.h"

namespace tamrix {

namespace {

constexpr std::array<std::string_view, 2> kOnOff = {"enable", "disable"};

constexpr std::array kProgramProperties = {
    KnownProperty{"srcpath", "."},
    KnownProperty{"srcspec", ""},
    KnownProperty{"dstpath", "."},
    KnownProperty{"total-buffer-size", "400MB"},
    KnownProperty{"buffer-size", "128KB"},
    KnownProperty{"batchfile", ""},
    KnownProperty{"loglevel", "INFO", false, kLevelNames},
    KnownProperty{"recursive", "disable", true, kOnOff},
    KnownProperty{"sparse", "disable", true, kOnOff},
    KnownProperty{"interactive", "disable", true, kOnOff},
    KnownProperty{"timer", "disable", true, kOnOff},
    KnownProperty{"ignore-vendor-check", "disable", true, kOnOff},
};

constexpr std::array<std::string_view, 2> kAudits = {"tape", "files"};
constexpr std::array<std::string_view, 3> kUpdates = {"calconly", "newonly", "updateall"};
constexpr std::array<std::string_view, 3> kMaps = {"auto", "enable", "disable"};

constexpr std::array kAuditProperties = {
    KnownProperty{"audit", "tape", false, kAudits},
    KnownProperty{"srcpath", "."},
    KnownProperty{"srcspec", ""},
    KnownProperty{"recursive", "disable", true, kOnOff},
    KnownProperty{"batchfile", ""},
    KnownProperty{"checksum", "xxh128"},
    KnownProperty{"checksum-update", "calconly", false, kUpdates},
    KnownProperty{"require-checksum", "disable", true, kOnOff},
    KnownProperty{"report", ""},
    KnownProperty{"map", "auto", true, kMaps},
    KnownProperty{"total-buffer-size", "400MB"},
    KnownProperty{"buffer-size", "128KB"},
    KnownProperty{"loglevel", "INFO", false, kLevelNames},
    KnownProperty{"timer", "disable", true, kOnOff},
    KnownProperty{"ignore-vendor-check", "disable", true, kOnOff},
    KnownProperty{"checksumea", "", false, {}, true},
};

constexpr std::array<std::string_view, 5> kDrives = {"lto5", "lto6", "lto7", "lto8", "lto9"};

// All that tamrix has, so that a batch file with options can be planned.
constexpr std::array kPlanOnlyProperties = {
    KnownProperty{"missing", "disable", true, kOnOff},
    KnownProperty{"checksum", ""},
    KnownProperty{"drive", "lto8", false, kDrives},
    KnownProperty{"output", ""},
    KnownProperty{"split", ""},
    KnownProperty{"report", ""},
};

constexpr auto kPlanProperties = [] {
  std::array<KnownProperty, kProgramProperties.size() + kPlanOnlyProperties.size()> all;
  auto* const behind = std::copy(kProgramProperties.begin(), kProgramProperties.end(), all.begin());
  std::copy(kPlanOnlyProperties.begin(), kPlanOnlyProperties.end(), behind);
  return all;
}();

}  // namespace

std::span<const KnownProperty> programProperties() { return kProgramProperties; }

std::span<const KnownProperty> auditProperties() { return kAuditProperties; }

std::span<const KnownProperty> planProperties() { return kPlanProperties; }

std::span<const ProgramTable> programTables() {
  static constexpr std::array kTables = {
      ProgramTable{"tamrix", kProgramProperties},
      ProgramTable{"tamrix-audit", kAuditProperties},
      ProgramTable{"tamrix-plan", kPlanProperties},
  };
  return kTables;
}

}  // namespace tamrix
