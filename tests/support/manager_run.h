// A whole run of the module manager: from options to files, without the command line.
#pragma once

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "config/properties.h"
#include "pipeline/run/module_manager.h"
#include "pipeline/stage/globals.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"

namespace tamrix::test {

using Settings = std::vector<std::pair<const char*, std::string>>;

// Runs every file below `dir`/src, to `dir`/dst, through a ring of at most 64 KiB, but for what `settings`
// say: they know more options than the program, those that select audits, checksums and the buffer file.
// Afterwards tells how it went.
struct ManagerRun {
  explicit ManagerRun(const TempDir& dir, const Settings& settings, Level level = kDebug) : log(level) {
    std::vector<KnownProperty> table(programProperties().begin(), programProperties().end());
    for (const char* wider : {"audit", "checksum", "checksum-update", "verify", "checksumea", "buffer-file",
                              "compare-when-listing"}) {
      table.push_back({wider, ""});
    }
    Properties store(table);
    Properties* const before = std::exchange(tamrix::properties, &store);
    bool ready = store.setDefaults();
    Settings all = {{"srcpath", dir / "src"},
                    {"srcspec", "*"},
                    {"dstpath", dir / "dst"},
                    {"recursive", "enable"},
                    {"ignore-vendor-check", "enable"},
                    {"total-buffer-size", "64KB"},
                    {"buffer-size", "4KB"}};
    all.insert(all.end(), settings.begin(), settings.end());
    for (const auto& [key, value] : all) ready = store.addProperty(key, value) == 0 && ready;
    if (!ready) std::abort();
    ModuleManager manager;
    manager.setGlobals(&globals);
    code = manager.run();
    tamrix::properties = before;
  }

  CapturedLog log;
  PipelineGlobals globals;
  int code = -1;
};

}  // namespace tamrix::test
