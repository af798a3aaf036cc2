// Walks directories for character-special device entries; a library piece, no copy uses it.
#pragma once

#include "reader/list/file_lister.h"

namespace tamrix {

// As the base, but lists character-special entries, and passes over directories that can't be opened.
class CharSpecialLister : public FileLister {
 public:
  using FileLister::FileLister;

  void dirInfoRecursive(PathList& list, const std::string& directory, std::string_view pattern) override;
  void dirInfo(PathList& list, const std::string& directory, std::string_view pattern) override;
};

}  // namespace tamrix
