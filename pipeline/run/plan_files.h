// The batch files of a plan.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "batch/batch_writer.h"
#include "config/run_options.h"
#include "pipeline/run/whole_file.h"

namespace tamrix {

class CopyList;
class Properties;
struct Extent;
struct FileC;

// The options of `store` that a planned copy needs as well, and that differ from their defaults.
std::vector<BatchParam> optionsOfPlan(const Properties& store);

// Purpose: one batch file, there when it is complete, or not at all. The options in it are those of the plan;
// the vendor check is switched off where it would fail, as for one volume of a plan that passed with another.
// Threads: one. Operations return 0, or 1 after logging at kUrgent what can't be written.
class PlanFile {
 public:
  // `params` must outlive it.
  PlanFile(std::string path, const std::vector<BatchParam>& params)
      : path_(std::move(path)), params_(params) {}

  const std::string& path() const { return path_; }

  [[nodiscard]] int open();
  // Adds the next file of the copy list. REQUIRES: tape order; open returned 0, like complete.
  [[nodiscard]] int add(const Extent& extent, const BatchEntry& entry);
  [[nodiscard]] int complete();

 private:
  [[nodiscard]] int check(int error) const;

  const std::string path_;
  const std::vector<BatchParam>& params_;
  WholeFile file_;
  std::optional<BatchWriter> writer_;  // once open
  const Extent* previous_ = nullptr;   // the last one added
  bool passesVendorCheck_ = false;     // one of those added does
};

// Purpose: the plan as one batch file, and as one for each volume in a directory of their own, which is there
// when all of them are. Memory grows with the number of volumes. Threads and results as above.
class PlanFiles {
 public:
  PlanFiles(const PlanOptions& options, std::vector<BatchParam> params);
  // Removes what is not complete.
  ~PlanFiles();
  PlanFiles(const PlanFiles&) = delete;
  PlanFiles& operator=(const PlanFiles&) = delete;

  // Whether any batch file is asked for.
  bool areWanted() const { return output_.has_value() || !split_.empty(); }

  // Makes ready for writing. Refused: a file of `list`, a directory for the volumes that holds anything.
  [[nodiscard]] int open(const CopyList& list);
  // Adds the next file of the copy list. REQUIRES: tape order.
  [[nodiscard]] int add(const Extent& extent, const BatchEntry& entry);
  // The batch files are there when this returns 0.
  [[nodiscard]] int complete();

 private:
  [[nodiscard]] int openDirectory();
  [[nodiscard]] int beginVolume(const std::string& uuid);
  [[nodiscard]] int endVolume();
  [[nodiscard]] int completeDirectory();

  const std::vector<BatchParam> params_;
  std::optional<PlanFile> output_;  // when it is wanted

  std::string split_;               // the directory; empty: not wanted
  std::string temporary_;           // its name until it is complete; empty: there is none
  std::set<std::string> names_;     // of its files
  std::string volumeUuid_;          // of the next
  std::optional<PlanFile> volume_;  // the one that is being written
};

}  // namespace tamrix
