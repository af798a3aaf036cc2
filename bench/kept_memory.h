// Memory that the system has at hand when a copy begins.
#pragma once

#include <cstddef>

namespace tamrix::bench {

// Holds half as much memory again as a copy takes, and gives it up for the time of each.
//
// A virtual machine tells its host which pages have been free for two seconds, and the host takes them away
// ("free page reporting" of Linux). To get them back costs a copy more than the copying. What is given up
// here is free for less than that when a copy begins to use it. What a copy still needs after two seconds may
// have gone; so a program that takes longer may pay for some of it.
//
// Half as much again, and in large pages, because the page cache of a disk takes memory in large pieces. What
// is given up in small ones joins again only in part, and for the rest the system takes large pieces that were
// free for long.
//
// Threads: one. Throws std::system_error where there is not so much memory.
class KeptMemory {
 public:
  // `needed`: what a copy takes, bytes.
  explicit KeptMemory(std::size_t needed);
  ~KeptMemory();
  KeptMemory(const KeptMemory&) = delete;
  KeptMemory& operator=(const KeptMemory&) = delete;

  // To be called just before a copy.
  void give();
  // To be called as soon as the copy is removed. Takes the memory again, and waits until the system has
  // looked at what was free meanwhile: it must not do that during the next copy.
  void take();

 private:
  const std::size_t bytes_;
  void* const memory_;
};

}  // namespace tamrix::bench
