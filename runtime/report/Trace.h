#pragma once

#include "gk/GKTime.h"

#include <cstddef>
#include <vector>

namespace gk::runtime {

/// A value over time in bounded memory: the smallest and the largest one of each of some thousand
/// spans of time, which grow as time goes on.
class Trace {
public:
  static constexpr std::size_t kMostSpans = 3000;

  struct Span {
    /// Of the span's first value, microseconds.
    GK::GKMicros time = 0;
    float least = 0;
    float most = 0;
  };

  /// Times do not go back. What is not finite is left out.
  void add(GK::GKMicros time, float value);

  /// Spans in order, without those that only repeat both their neighbours.
  std::vector<Span> spans() const;

  bool isEmpty() const noexcept { return fSpans.empty(); }
  /// The largest value; 0 without any.
  float most() const noexcept { return fMost; }
  /// True when it never changed.
  bool isConstant() const noexcept { return fSpans.empty() || fLeast == fMost; }

private:
  void xHalve();

  GK::GKMicros fWidth = 20'000;
  std::vector<Span> fSpans;
  GK::GKMicros fLast = 0;
  float fLeast = 0;
  float fMost = 0;
};

} // namespace gk::runtime
