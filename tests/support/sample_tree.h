// A tree of random files to copy, and the comparison of a copy with it.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace tamrix::test {

// The same seed makes the same tree. Files are of all sizes (most are small) with runs of zeros in them, have
// odd names in deep directories, odd modes, times before and after 1970, user attributes of all sizes as far
// as the file system takes them, and some have a position on tape.
class SampleTree {
 public:
  // Makes `count` files below the directory `root`; the largest have about `largest` bytes.
  SampleTree(std::string root, std::uint64_t seed, int count, std::size_t largest);

  int count() const { return static_cast<int>(files_.size()); }
  // Sets all times as they were made: reading a file moves its access time.
  void restoreTimes() const;
  // In what the copy at `destination` differs from the tree, times as of the last restoreTimes; a line per
  // difference, empty for none. Set-user-ID and set-group-ID bits and those of `umask` are not to be there.
  std::string differences(const std::string& destination, mode_t umask) const;

 private:
  struct File {
    std::string name;   // below the root
    timespec times[2];  // access and modification
    mode_t mode;
  };

  std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
  std::string bytes(std::size_t size);
  std::string content(std::size_t largest);
  std::string name();
  void addFile(const std::string& directory, std::size_t largest);
  void addAttributes(const std::string& path);
  timespec time();

  const std::string root_;
  std::mt19937_64 random_;
  std::vector<File> files_;
};

}  // namespace tamrix::test
