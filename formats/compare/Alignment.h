#pragma once

#include "formats/compare/ReportedRun.h"

#include <cstddef>
#include <optional>
#include <span>

namespace gk::formats {

/// A place of one row, and one of another.
struct PlacePair {
  std::size_t a = 0;
  std::size_t b = 0;

  bool operator==(const PlacePair&) const = default;
};

/// Finds which values of two rows belong together: a longest common row of equal ones.
///
/// Of equally long ones it is the earliest: each of its pairs has as few values as possible between
/// itself and the pair before, in both rows together; of several such pairs the one whose times are
/// nearest. Exchanging the rows exchanges the places, and changes nothing else.
///
/// Takes time for the values and for the square of the unmatched ones, and some megabytes of
/// memory, however long the rows are (E. W. Myers, An O(ND) difference algorithm and its
/// variations, 1986). More than `kMostUnmatched` with nowhere `kAgreement` equal values in a row
/// between them are matched in windows of `kWindow` instead, until there are as many in a row
/// again.
class Alignment {
public:
  static constexpr std::size_t kMostUnmatched = 5'000;
  static constexpr std::size_t kAgreement = 32;
  static constexpr GK::GKMicros kWindow = 10'000'000;

  /// Told of what belongs together, from the beginning to the end.
  class Sink {
  public:
    virtual ~Sink() = default;
    virtual void match(PlacePair pair) = 0;
    /// A window ends before these places: what is unmatched before them has nothing to do with what
    /// comes behind.
    virtual void border(PlacePair places) = 0;
  };

  using Values = std::span<const ReportedValue>;

  /// All must outlive this object.
  Alignment(Values a, Values b, const SameWithin& isSame, const ValuePool& pool);

  /// Returns whether some of it was matched in windows.
  bool find(Sink& sink) const;

private:
  struct Area;
  template <bool isReverse> class Frontiers;
  class Turned;

  bool xFind(Sink& sink) const;
  bool xIsSame(PlacePair pair) const { return fIsSame(fA[pair.a].word, fB[pair.b].word); }
  template <class Match> void xWalk(const Area& area, std::size_t unmatched, Frontiers<true>& back,
                                    const Match& match) const;
  std::optional<PlacePair> xNearest(const Area& area, PlacePair from, std::size_t unmatched,
                                    Frontiers<true>& back) const;
  std::optional<PlacePair> xLastAgreement(const Area& area, std::size_t unmatched,
                                          Frontiers<true>& back) const;
  PlacePair xFindInWindows(PlacePair from, Sink& sink) const;
  template <class Match> void xFindInWindow(const Area& area, const Match& match) const;
  bool xHasCommon(const Area& area) const;

  Values fA;
  Values fB;
  const SameWithin& fIsSame;
  /// The rows were exchanged, so that the result does not depend on which of them comes first.
  bool fIsExchanged = false;
};

} // namespace gk::formats
