#include "bench/read_order.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <tuple>
#include <utility>

namespace tamrix::tape {

namespace {

// The files and the costs of going from one to another.
class Trip {
 public:
  Trip(const Drive& drive, const std::vector<Stretch>& files) : drive_(drive), files_(files) {}

  int count() const { return static_cast<int>(files_.size()); }
  const Drive& drive() const { return drive_; }
  const Stretch& file(int index) const { return files_[static_cast<std::size_t>(index)]; }
  // From the end of a file to the beginning of another; from kStart: from the beginning of the tape; to
  // kEnd: nothing.
  double cost(int from, int to) const {
    return to == kEnd ? 0 : drive_.locateSeconds(from == kStart ? 0 : file(from).end, file(to).begin);
  }
  double seconds(const Order& order) const {
    double sum = 0;
    int before = kStart;
    for (const int next : order) sum += cost(std::exchange(before, next), next);
    return sum;
  }

  static constexpr int kStart = -1;
  static constexpr int kEnd = -2;

 private:
  const Drive& drive_;
  const std::vector<Stretch>& files_;
};

Order nearestNext(const Trip& trip) {
  Order left(static_cast<std::size_t>(trip.count()));
  std::iota(left.begin(), left.end(), 0);
  Order order;
  int here = Trip::kStart;
  while (!left.empty()) {
    const auto nearest = std::min_element(left.begin(), left.end(), [&, best = here](int a, int b) {
      return trip.cost(best, a) < trip.cost(best, b);
    });
    here = *nearest;
    order.push_back(here);
    *nearest = left.back();
    left.pop_back();
  }
  return order;
}

Order sweep(const Trip& trip) {
  Order order(static_cast<std::size_t>(trip.count()));
  std::iota(order.begin(), order.end(), 0);
  const auto key = [&](int index) {
    const std::int64_t begin = trip.file(index).begin;
    const bool back = trip.drive().leadsBack(begin);
    const double metres = trip.drive().metresFromBeginning(begin);
    return std::tuple(back, back ? -metres : metres);
  };
  std::sort(order.begin(), order.end(), [&](int a, int b) { return key(a) < key(b); });
  return order;
}

// For each file the few that are nearest to its end.
using Successors = std::vector<std::vector<int>>;

Successors findSuccessors(const Trip& trip) {
  constexpr std::size_t kKept = 10;
  Successors successors;
  std::vector<std::pair<double, int>> costs;
  for (int file = 0; file < trip.count(); ++file) {
    costs.clear();
    for (int other = 0; other < trip.count(); ++other) {
      if (other != file) costs.emplace_back(trip.cost(file, other), other);
    }
    const std::size_t kept = std::min(kKept, costs.size());
    std::partial_sort(costs.begin(), costs.begin() + static_cast<std::ptrdiff_t>(kept), costs.end());
    std::vector<int>& nearest = successors.emplace_back();
    for (std::size_t i = 0; i < kept; ++i) nearest.push_back(costs[i].second);
  }
  return successors;
}

// Improves an order move by move.
class Improver {
 public:
  Improver(const Trip& trip, const Successors& successors, Order order)
      : trip_(trip), successors_(successors), order_(std::move(order)), placeOf_(order_.size()) {
    for (std::size_t at = 0; at < order_.size(); ++at) placeOf_[index(order_[at])] = static_cast<int>(at);
  }

  Order run() {
    bool improved = true;
    for (int round = 0; improved && round < kMostRounds; ++round) {
      improved = false;
      for (int file = 0; file < trip_.count(); ++file) {
        for (const int next : successors_[index(file)]) improved = bring(next, file) || improved;
      }
    }
    return std::move(order_);
  }

 private:
  static constexpr int kMostRounds = 50;
  static constexpr int kLongestRun = 3;
  static constexpr double kLeastGain = 1e-6;  // seconds

  static std::size_t index(int i) { return static_cast<std::size_t>(i); }
  int at(int place) const {
    if (place < 0) return Trip::kStart;
    return place < trip_.count() ? order_[index(place)] : Trip::kEnd;
  }

  // Moves a run that begins with `file` behind `before` if that costs less. Returns whether it did.
  bool bring(int file, int before) {
    for (int length = 1; length <= kLongestRun; ++length) {
      const int first = placeOf_[index(file)];
      const int target = placeOf_[index(before)];
      const int behind = first + length;
      if (behind > trip_.count() || (target >= first - 1 && target < behind)) return false;
      const int last = at(behind - 1);
      const double now =
          trip_.cost(at(first - 1), file) + trip_.cost(last, at(behind)) + trip_.cost(before, at(target + 1));
      const double then =
          trip_.cost(at(first - 1), at(behind)) + trip_.cost(before, file) + trip_.cost(last, at(target + 1));
      if (then > now - kLeastGain) continue;
      move(first, behind, target);
      return true;
    }
    return false;
  }

  void move(int first, int behind, int target) {
    const auto place = [&](int i) { return order_.begin() + i; };
    const int low = std::min(first, target + 1);
    const int high = std::max(behind, target + 1);
    if (target < first) {
      std::rotate(place(low), place(first), place(behind));
    } else {
      std::rotate(place(first), place(behind), place(high));
    }
    for (int i = low; i < high; ++i) placeOf_[index(order_[index(i)])] = i;
  }

  const Trip& trip_;
  const Successors& successors_;
  Order order_;
  std::vector<int> placeOf_;  // of each file in order_
};

}  // namespace

double secondsOf(const Drive& drive, const std::vector<Stretch>& files, const Order& order) {
  return Trip(drive, files).seconds(order) + readingSeconds(drive, files);
}

double readingSeconds(const Drive& drive, const std::vector<Stretch>& files) {
  return std::accumulate(files.begin(), files.end(), 0.0, [&](double sum, const Stretch& file) {
    return sum + drive.streamSeconds(file.begin, file.end - file.begin);
  });
}

Order estimatedBest(const Drive& drive, const std::vector<Stretch>& files, const Order& known) {
  const Trip trip(drive, files);
  const Successors successors = findSuccessors(trip);
  Order best;
  double least = std::numeric_limits<double>::infinity();
  for (Order& start : std::vector{known, nearestNext(trip), sweep(trip)}) {
    Order order = Improver(trip, successors, std::move(start)).run();
    const double seconds = trip.seconds(order);
    if (seconds >= least) continue;
    least = seconds;
    best = std::move(order);
  }
  return best;
}

}  // namespace tamrix::tape
