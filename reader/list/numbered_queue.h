// A list that is used up from the front.
#pragma once

#include <cstddef>
#include <deque>
#include <utility>

namespace tamrix {

// Purpose: items keep their numbers, counted from 0, while those before them are freed. So a listing of
// millions of paths shrinks as its records grow.
// Threads: one. Lifetime: any.
template <class T>
class NumberedQueue {
 public:
  void push_back(T item) { items_.push_back(std::move(item)); }

  // How many items were put in, those already freed included.
  std::size_t size() const { return givenBack_ + items_.size(); }

  // REQUIRES: `number` is below size(), and its item is not freed.
  const T& operator[](std::size_t number) const { return items_[number - givenBack_]; }

  // Frees the items before `number`. REQUIRES: `number` is at most size().
  void giveBackBefore(std::size_t number) {
    for (; givenBack_ < number; ++givenBack_) items_.pop_front();
  }

 private:
  std::deque<T> items_;
  std::size_t givenBack_ = 0;
};

}  // namespace tamrix
