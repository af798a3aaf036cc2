#include "config/known_properties.h"

#include <array>

namespace tamrix {

namespace {

constexpr std::array<std::string_view, 5> kLevels = {"DEBUG", "PROGRESS", "INFO", "WARNING", "URGENT"};
constexpr std::array<std::string_view, 2> kOnOff = {"enable", "disable"};

constexpr std::array kProgramProperties = {
    KnownProperty{"srcpath", "."},
    KnownProperty{"srcspec", ""},
    KnownProperty{"dstpath", "."},
    KnownProperty{"total-buffer-size", "400MB"},
    KnownProperty{"buffer-size", "128KB"},
    KnownProperty{"batchfile", ""},
    KnownProperty{"loglevel", "INFO", false, kLevels},
    KnownProperty{"recursive", "disable", true, kOnOff},
    KnownProperty{"sparse", "disable", true, kOnOff},
    KnownProperty{"interactive", "disable", true, kOnOff},
    KnownProperty{"timer", "disable", true, kOnOff},
    KnownProperty{"ignore-vendor-check", "disable", true, kOnOff},
};

}  // namespace

std::span<const KnownProperty> programProperties() { return kProgramProperties; }

}  // namespace tamrix
