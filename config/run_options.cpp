#include "config/run_options.h"

#include "config/properties.h"

namespace tamrix {

namespace {

std::string textOf(const Properties& store, const char* key) {
  const char* value = nullptr;
  return store.getProperty(key, value) == 0 ? value : "";
}

bool isOn(const Properties& store, const char* key) { return store.testProperty(key, "enable") != 0; }

AuditMode auditMode(const Properties& store) {
  if (store.testProperty("audit", "tape") != 0) return AuditMode::kTape;
  if (store.testProperty("audit", "files") != 0) return AuditMode::kFiles;
  return textOf(store, "audit").empty() ? AuditMode::kNone : AuditMode::kOther;
}

VerifyMode verifyMode(const Properties& store) {
  if (store.testProperty("verify", "fail") != 0) return VerifyMode::kFail;
  return store.testProperty("verify", "warn") != 0 ? VerifyMode::kWarn : VerifyMode::kNotSet;
}

ChecksumUpdateMode checksumUpdateMode(const Properties& store) {
  if (store.testProperty("checksum-update", "calconly") != 0) return ChecksumUpdateMode::kCalcOnly;
  if (store.testProperty("checksum-update", "newonly") != 0) return ChecksumUpdateMode::kNewOnly;
  return store.testProperty("checksum-update", "updateall") != 0 ? ChecksumUpdateMode::kUpdateAll
                                                                 : ChecksumUpdateMode::kNotSet;
}

}  // namespace

AuditOptions readAuditOptions(const Properties& store) {
  AuditOptions options;
  options.requireChecksum = isOn(store, "require-checksum");
  options.report = textOf(store, "report");
  if (store.testProperty("map", "auto") != 0) options.map = MapMode::kAuto;
  if (isOn(store, "map")) options.map = MapMode::kOn;
  return options;
}

PlanOptions readPlanOptions(const Properties& store) {
  PlanOptions options;
  options.missing = isOn(store, "missing");
  options.drive = textOf(store, "drive");
  options.output = textOf(store, "output");
  options.split = textOf(store, "split");
  options.report = textOf(store, "report");
  return options;
}

RunOptions readRunOptions(const Properties& store) {
  RunOptions options;
  options.srcpath = textOf(store, "srcpath");
  options.srcspec = textOf(store, "srcspec");
  options.dstpath = textOf(store, "dstpath");
  options.batchfile = textOf(store, "batchfile");
  options.recursive = isOn(store, "recursive");
  options.interactive = isOn(store, "interactive");
  options.sparse = isOn(store, "sparse");
  options.ignoreVendorCheck = isOn(store, "ignore-vendor-check");
  options.compareWhenListing = store.testProperty("compare-when-listing", "disable") == 0;
  options.totalBufferSize = textOf(store, "total-buffer-size");
  options.bufferSize = textOf(store, "buffer-size");
  options.bufferFile = textOf(store, "buffer-file");
  options.audit = auditMode(store);
  options.verify = verifyMode(store);
  options.checksumUpdate = checksumUpdateMode(store);
  options.asksForChecksum = !textOf(store, "verify").empty() || !textOf(store, "checksum-update").empty();
  options.checksum = textOf(store, "checksum");
  options.checksumAttribute = textOf(store, "checksumea");
  return options;
}

}  // namespace tamrix
