#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>

namespace gk::fleet {

/// A set of sequence numbers in few ranges: first and last of each, both included. Neighbours are
/// one range.
class SeqRanges {
public:
  using Map = std::map<std::uint64_t, std::uint64_t>;

  void add(std::uint64_t from, std::uint64_t to) {
    auto next = fRanges.upper_bound(from);
    if (next != fRanges.begin() && std::prev(next)->second + 1 >= from) {
      --next;
      from = next->first;
    }
    while (next != fRanges.end() && next->first <= to + 1) {
      to = std::max(to, next->second);
      next = fRanges.erase(next);
    }
    fRanges.emplace(from, to);
  }

  void remove(std::uint64_t from, std::uint64_t to) {
    auto range = fRanges.upper_bound(from);
    if (range != fRanges.begin() && std::prev(range)->second >= from) {
      --range;
    }
    while (range != fRanges.end() && range->first <= to) {
      const auto [first, last] = *range;
      range = fRanges.erase(range);
      if (first < from) {
        fRanges.emplace(first, from - 1);
      }
      if (last > to) {
        fRanges.emplace(to + 1, last);
      }
    }
  }

  void clear() { fRanges.clear(); }
  bool isEmpty() const { return fRanges.empty(); }
  const Map& ranges() const { return fRanges; }

private:
  Map fRanges;
};

} // namespace gk::fleet
