#pragma once

#include "formats/compare/ReportedRun.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace gk::formats {

enum class DifferenceKind : std::uint8_t {
  Missing, ///< in A only
  Extra,   ///< in B only
  Changed, ///< another value at this place
  Moved    ///< the same value at another time
};

/// "missing", "extra", "changed" or "moved".
std::string_view differenceName(DifferenceKind kind);

struct DifferenceCounts {
  std::uint64_t missing = 0;
  std::uint64_t extra = 0;
  std::uint64_t changed = 0;
  std::uint64_t moved = 0;

  std::uint64_t sum() const noexcept { return missing + extra + changed + moved; }
  DifferenceCounts& operator+=(const DifferenceCounts& more) noexcept;
};

/// How far apart is still the same; both ends are.
struct CompareTolerance {
  double value = 0;
  GK::GKMicros time = 0;
};

/// How two runs differ in what they reported.
///
/// Takes at most 32 bytes for each value that is compared, those that the runs take included. For
/// one thread.
class Comparison {
public:
  /// What is compared under one name.
  struct Name {
    LineKind kind = LineKind::Event;
    std::string name;
    std::size_t valuesA = 0;
    std::size_t valuesB = 0;
    DifferenceCounts counts;
    /// So much differs that part of it was matched in windows of `Alignment::kWindow`.
    bool isInWindows = false;

    /// For people: events are known by their names, of all else the kind of line is told as well.
    std::string text() const;
  };

  struct Difference {
    DifferenceKind kind = DifferenceKind::Changed;
    const Name* name = nullptr;
    /// Null where there is none.
    const ReportedValue* a = nullptr;
    const ReportedValue* b = nullptr;

    /// The earlier of both times.
    GK::GKMicros time() const noexcept;
  };

  /// Both runs, of one pool, must outlive this object. Kinds of lines that one of them does not
  /// tell are left out.
  Comparison(const ReportedRun& a, const ReportedRun& b, const CompareTolerance& tolerance);
  ~Comparison();
  Comparison(const Comparison&) = delete;
  Comparison& operator=(const Comparison&) = delete;

  const ReportedRun& a() const noexcept { return fA; }
  const ReportedRun& b() const noexcept { return fB; }

  bool isSame() const noexcept { return fCounts.sum() == 0; }
  const DifferenceCounts& counts() const noexcept { return fCounts; }
  /// Sorted by name, then by kind of line.
  std::vector<const Name*> names() const;

  /// All differences, the first in time first, until `take` returns false.
  void forEach(const std::function<bool(const Difference&)>& take) const;

  /// Kinds of lines that are wanted but not told by one of the runs.
  std::vector<LineKind> leftOut() const;

private:
  struct Place;
  struct Compared;
  class Collector;

  void xCompare(Compared& compared, const CompareTolerance& tolerance);
  static Difference xDifference(const Compared& compared, const Place& place);

  const ReportedRun& fA;
  const ReportedRun& fB;
  std::vector<Compared> fCompared;
  DifferenceCounts fCounts;
};

} // namespace gk::formats
