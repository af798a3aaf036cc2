#include "reader/list/char_special_lister.h"

#include <sys/stat.h>

namespace tamrix {

void CharSpecialLister::dirInfoRecursive(PathList& list, const std::string& directory,
                                         std::string_view pattern) {
  walkDirectory({S_IFCHR, true, false, pattern}, directory, globals_, list);
}

void CharSpecialLister::dirInfo(PathList& list, const std::string& directory, std::string_view pattern) {
  walkDirectory({S_IFCHR, false, false, pattern}, directory, globals_, list);
}

}  // namespace tamrix
