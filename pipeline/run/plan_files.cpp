#include "pipeline/run/plan_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "config/known_properties.h"
#include "config/properties.h"
#include "log/logger.h"
#include "pipeline/run/json_lines.h"
#include "reader/list/source_attributes.h"
#include "reader/record/extent.h"
#include "reader/record/file_c.h"

namespace tamrix {

namespace {

constexpr const char* kIgnoreVendorCheck = "ignore-vendor-check";
// What decides how files are copied; which ones, and what is logged, is not the copy's any more.
constexpr std::array<std::string_view, 5> kHandedOn = {kIgnoreVendorCheck, "interactive", "sparse",
                                                       "total-buffer-size", "buffer-size"};

constexpr const char* kWithoutVolume = "no-volume";

int fail(const std::string& path, int error) {
  logger->log(kUrgent, msg::kPlanWriteFailed, path, std::strerror(error));
  return 1;
}

// A file name that means the same everywhere: other characters than letters, digits, '.', '_' and '-' are
// replaced.
std::string safeName(std::string name) {
  const auto isSafe = [](char c) {
    return ('a' <= c && c <= 'z') || ('A' <= c && c <= 'Z') || ('0' <= c && c <= '9') || c == '.' ||
           c == '_' || c == '-';
  };
  std::replace_if(
      name.begin(), name.end(), [&](char c) { return !isSafe(c); }, '_');
  if (name.starts_with('.') || name.starts_with('-')) name.front() = '_';
  return name.empty() ? kWithoutVolume : name;
}

bool isOnVendorVolume(const FileC& file) {
  std::string destination = file.dstPath.directory();
  if (!destination.empty()) destination.pop_back();
  return isSoftwareVendorVOQ(file.srcPath.text()) || isSoftwareVendorVOQ(destination);
}

}  // namespace

std::vector<BatchParam> optionsOfPlan(const Properties& store) {
  std::vector<BatchParam> params;
  for (const KnownProperty& row : programProperties()) {
    if (std::find(kHandedOn.begin(), kHandedOn.end(), row.name) == kHandedOn.end()) continue;
    const std::string name(row.name);
    std::string value;
    if (store.getProperty(name, value) == 0 && value != row.defaultValue) params.push_back({name, value});
  }
  return params;
}

int PlanFile::open() {
  if (check(file_.open(path_)) != 0) return 1;
  writer_.emplace(file_.stream());
  return check(writer_->begin());
}

int PlanFile::add(const Extent& extent, const BatchEntry& entry) {
  // The first file of a volume speaks for all.
  if (!passesVendorCheck_ && (previous_ == nullptr || previous_->volumeUuid != extent.volumeUuid)) {
    passesVendorCheck_ = isOnVendorVolume(*extent.file);
  }
  previous_ = &extent;
  return check(writer_->add(entry));
}

int PlanFile::complete() {
  std::vector<BatchParam> params = params_;
  const bool isIgnored = std::any_of(
      params.begin(), params.end(), [](const BatchParam& param) { return param.name == kIgnoreVendorCheck; });
  // Without any file, too: tamrix is to say that there is nothing to copy, and no more.
  if (!isIgnored && !passesVendorCheck_) params.push_back({kIgnoreVendorCheck, "enable"});
  return check(writer_->end(params)) == 0 ? check(file_.complete()) : 1;
}

int PlanFile::check(int error) const { return error == 0 ? 0 : fail(path_, error); }

PlanFiles::PlanFiles(const PlanOptions& options, std::vector<BatchParam> params)
    : params_(std::move(params)), split_(options.split) {
  if (!options.output.empty()) output_.emplace(options.output, params_);
  while (split_.size() > 1 && split_.ends_with('/')) split_.pop_back();
}

PlanFiles::~PlanFiles() {
  volume_.reset();
  std::error_code ignored;
  if (!temporary_.empty()) std::filesystem::remove_all(temporary_, ignored);
}

int PlanFiles::open(const CopyList& list) {
  if (output_ && isSourceOf(list, output_->path())) return fail(output_->path(), EEXIST);
  if (output_ && output_->open() != 0) return 1;
  return split_.empty() ? 0 : openDirectory();
}

int PlanFiles::openDirectory() {
  std::error_code error;
  if (std::filesystem::exists(split_, error) && !std::filesystem::is_directory(split_, error)) {
    return fail(split_, ENOTDIR);
  }
  const bool isTaken = std::filesystem::exists(split_, error) && !std::filesystem::is_empty(split_, error);
  if (error) return fail(split_, error.value());
  // Plans of another day among them would be copied with these.
  if (isTaken) return fail(split_, ENOTEMPTY);
  std::string name = split_ + ".XXXXXX";
  if (mkdtemp(name.data()) == nullptr) return fail(split_, errno);
  temporary_ = name;
  return 0;
}

int PlanFiles::add(const Extent& extent, const BatchEntry& entry) {
  if (output_ && output_->add(extent, entry) != 0) return 1;
  if (split_.empty()) return 0;
  const char* const uuid = extent.volumeUuid.data();
  if ((!volume_ || volumeUuid_ != uuid) && (endVolume() != 0 || beginVolume(uuid) != 0)) return 1;
  return volume_->add(extent, entry);
}

int PlanFiles::beginVolume(const std::string& uuid) {
  const std::string safe = safeName(uuid);
  std::string name = safe;
  for (int number = 2; !names_.insert(name).second; ++number) name = safe + "-" + std::to_string(number);
  volumeUuid_ = uuid;
  volume_.emplace(temporary_ + "/" + name + ".xml", params_);
  return volume_->open();
}

int PlanFiles::endVolume() {
  const int result = volume_ ? volume_->complete() : 0;
  volume_.reset();
  return result;
}

int PlanFiles::complete() {
  if (!split_.empty()) {
    if (completeDirectory() != 0) return 1;
    logger->log(kInfo, msg::kPlanWritten, split_);
  }
  if (output_) {
    if (output_->complete() != 0) return 1;
    logger->log(kInfo, msg::kPlanWritten, output_->path());
  }
  return 0;
}

int PlanFiles::completeDirectory() {
  if (endVolume() != 0) return 1;
  const mode_t mask = umask(0);
  umask(mask);
  // An empty directory is replaced.
  if (chmod(temporary_.c_str(), 0777 & ~mask) != 0 || std::rename(temporary_.c_str(), split_.c_str()) != 0) {
    return fail(split_, errno);
  }
  temporary_.clear();
  return 0;
}

}  // namespace tamrix
