// Listers turn what the user asked for into source/destination pairs; the base walks directories.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "config/run_options.h"
#include "pipeline/stage/globals.h"
#include "reader/list/directory_walk.h"
#include "reader/list/numbered_queue.h"

namespace tamrix {

// Purpose: the directory walk, and the sequence of pairs that the copy list asks for.
// Threads: one, the main thread, before the pipeline runs.
// Lifetime: made by the copy list; the globals and options outlive it. A stop flag set meanwhile cuts the
// walk short.
class FileLister {
 public:
  // The longest source or destination path that a lister hands out.
  static constexpr std::size_t kMaxPathLength = 1024;
  // The pattern that every name matches.
  static constexpr std::string_view kAnyName = "*";

  FileLister(PipelineGlobals& globals, const RunOptions& options);
  virtual ~FileLister();
  FileLister(const FileLister&) = delete;
  FileLister& operator=(const FileLister&) = delete;

  // Appends the full paths of the regular files in and below `directory` whose base names match `pattern`;
  // walkDirectory tells what happens with links, loops and what can't be read.
  virtual void dirInfoRecursive(PathList& list, const std::string& directory, std::string_view pattern);
  // As dirInfoRecursive, for the entries of `directory` alone.
  virtual void dirInfo(PathList& list, const std::string& directory, std::string_view pattern);

  // Lists the whole sequence. Returns 0, or the code with which the run ends, having logged why. The base
  // returns 1.
  [[nodiscard]] virtual int init();

  // How many pairs the sequence has, those already freed included.
  std::size_t size() const { return pairs_.size(); }
  // Pair `number`, counted from 0, unjudged. REQUIRES: `number` is below size(), and not below that of the
  // current pair.
  const FilePair& pair(std::size_t number) const { return pairs_[number]; }

  // Takes the next pair: logs it, checks its paths, makes it current, and frees the pairs before it. Returns
  // 0 for a pair, 1 at the end, -1 for a bad entry that ends the run, having logged why. The base returns 0
  // and changes nothing.
  [[nodiscard]] virtual int getNextFile();

  const std::string& srcFile() const { return srcFile_; }
  const std::string& dstFile() const { return dstFile_; }

 protected:
  // Appends to `result` the files in (when `recursive`, also below) `directory` that match.
  void listMatching(PathList& result, const std::string& directory, std::string_view pattern, bool recursive);

  // Whether `path` keeps the limit on lengths; logs it at kUrgent when not.
  static bool hasAcceptedLength(const std::string& path);

  // Makes the pair that is to be taken next current, whatever its paths, and frees those before it. REQUIRES:
  // there is one.
  void takeNext();

  std::string srcFile_;
  std::string dstFile_;
  NumberedQueue<FilePair> pairs_;
  std::size_t taken_ = 0;  // the number of the pair that getNextFile takes next
  PipelineGlobals& globals_;
  const RunOptions& options_;
};

}  // namespace tamrix
