// A whole run of the module manager: from options to files, without the command line.
#pragma once

#include <string>

#include "pipeline/run/module_manager.h"
#include "pipeline/stage/globals.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wide_properties.h"

namespace tamrix::test {

// Runs with the wide options: every file below `dir`/src, to `dir`/dst, through a ring of at most 64 KiB, but
// for what `settings` say. Afterwards tells how it went.
struct ManagerRun {
  explicit ManagerRun(const TempDir& dir, const Settings& settings, Level level = kDebug)
      : log(level),
        properties({{"srcpath", dir / "src"},
                    {"srcspec", "*"},
                    {"dstpath", dir / "dst"},
                    {"recursive", "enable"},
                    {"ignore-vendor-check", "enable"},
                    {"total-buffer-size", "64KB"},
                    {"buffer-size", "4KB"}}) {
    for (const auto& [key, value] : settings) properties.set(key, value);
    ModuleManager manager;
    manager.setGlobals(&globals);
    code = manager.run();
  }

  CapturedLog log;
  WideProperties properties;
  PipelineGlobals globals;
  int code = -1;
};

}  // namespace tamrix::test
