#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

namespace gk::chaos {

/// Chance that is the same in every run with the same seed.
class Dice {
public:
  explicit Dice(std::uint64_t seed) : fEngine(seed) {}

  /// 0 to `count` - 1.
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(fEngine() % count); }
  /// True in one of `count` cases.
  bool oneIn(std::size_t count) { return below(count) == 0; }

  template <class List> auto pick(const List& list) {
    return std::data(list)[below(std::size(list))];
  }

  std::string bytes(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
      text += static_cast<char>(fEngine() & 0xFFU);
    }
    return text;
  }

private:
  std::mt19937_64 fEngine;
};

} // namespace gk::chaos
