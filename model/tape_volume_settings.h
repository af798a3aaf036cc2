// The options of tape_volume:
//
//     -layout=FILE         where files lie on tape, a line each: PARTITION BLOCK PATH-BELOW-DIRECTORY
//     -account=FILE        written at the end: what the drive had to do; see tape_account.h
//     -vendor=TEXT -uuid=TEXT -blocksize=BYTES    without a vendor there are no virtual attributes
//     -drive=lto5...lto9   the generation of the drive; lto9 without it
//     -bad-block=P:BLOCK   reading block BLOCK of partition P fails; any number of them
//     -bad-attribute=NAME  reading the attribute fails
//     -delay=FACTOR        sleep FACTOR times the modelled time; 0 (not at all) without it
//     -stream=FIGURES      zeros at the rate of a drive with its buffer, or of a disk: see model/stream.h,
//     also for
//                          the account
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "model/tape_account.h"

namespace tamrix::model {

struct TapeVolumeSettings {
  std::string layoutFile;
  std::string accountFile;
  std::string vendor = "VOQ";
  std::string uuid = "30a91a08-daae-48d1-ae75-69804e61d2ea";
  std::int64_t blockSize = 524288;
  const tape::Generation* generation = tape::findGeneration("lto9");  // null: there is no such drive
  std::set<Account::Position> badBlocks;
  std::string badAttribute;
  double delay = 0;
  std::string stream;
};

// Returns false when `argument` is no option, or names no drive.
inline bool takeOption(std::string_view argument, TapeVolumeSettings& settings) {
  using Value = const std::string&;
  const std::map<std::string_view, std::function<void(Value)>> options = {
      {"-layout", [&](Value value) { settings.layoutFile = value; }},
      {"-account", [&](Value value) { settings.accountFile = value; }},
      {"-vendor", [&](Value value) { settings.vendor = value; }},
      {"-uuid", [&](Value value) { settings.uuid = value; }},
      {"-blocksize", [&](Value value) { settings.blockSize = std::stoll(value); }},
      {"-drive", [&](Value value) { settings.generation = tape::findGeneration(value); }},
      {"-bad-block",
       [&](Value value) {
         settings.badBlocks.insert({value.at(0), std::stoll(value.substr(2))});
       }},
      {"-bad-attribute", [&](Value value) { settings.badAttribute = value; }},
      {"-stream", [&](Value value) { settings.stream = value; }},
      {"-delay", [&](Value value) { settings.delay = std::stod(value); }},
  };
  const std::size_t equals = argument.find('=');
  const auto found = options.find(argument.substr(0, equals));
  if (equals == std::string_view::npos || found == options.end()) return false;
  found->second(std::string(argument.substr(equals + 1)));
  return settings.generation != nullptr;
}

}  // namespace tamrix::model
