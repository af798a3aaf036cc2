#include "config/known_properties.h"

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

}  // namespace

std::span<const KnownProperty> programProperties() { return kProgramProperties; }

std::span<const KnownProperty> auditProperties() { return kAuditProperties; }

std::span<const ProgramTable> programTables() {
  static constexpr std::array kTables = {
      ProgramTable{"tamrix", kProgramProperties},
      ProgramTable{"tamrix-audit", kAuditProperties},
  };
  return kTables;
}

}  // namespace tamrix
