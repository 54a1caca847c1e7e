#include "formats/compare/Alignment.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

namespace gk::formats {

namespace {

/// Whether the first row is to stay the first one.
bool isInOrder(Alignment::Values a, Alignment::Values b, const ValuePool& pool) {
  if (a.size() != b.size()) {
    return a.size() < b.size();
  }
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i].time != b[i].time) {
      return a[i].time < b[i].time;
    }
    if (a[i].word != b[i].word) {
      return pool.order(a[i].word, b[i].word) < 0;
    }
  }
  return true;
}

std::size_t firstNotBefore(Alignment::Values values, std::size_t from, GK::GKMicros time) {
  const auto rest = values.subspan(from);
  const auto found = std::ranges::lower_bound(rest, time, {}, &ReportedValue::time);
  return from + static_cast<std::size_t>(found - rest.begin());
}

} // namespace

/// Part of both rows: the places from `from` up to `to`.
struct Alignment::Area {
  PlacePair from;
  PlacePair to;

  bool isEmpty() const { return from.a == to.a || from.b == to.b; }
};

/// How far one gets into an area from its first corner, or backwards from its last one, with so
/// many unmatched values ("level"): for each diagonal (values taken of A minus values taken of B)
/// the most values of A. A point of a diagonal that is not further can be reached as well.
///
/// Every level is made of the one before. Of the levels some are kept; those between are made again
/// when they are looked at.
template <bool isReverse> class Alignment::Frontiers {
public:
  Frontiers(const Alignment& alignment, const Area& area)
      : fAlignment(alignment), fArea(area), fSizeA(static_cast<Count>(area.to.a - area.from.a)),
        fSizeB(static_cast<Count>(area.to.b - area.from.b)) {}

  /// The unmatched values on a way to the other corner, the fewest; nothing when there are more
  /// than `most`.
  std::optional<std::size_t> search(std::size_t most) {
    fNow = {static_cast<Stored>(xSlide(0, 0))};
    for (fLevel = 0;; ++fLevel) {
      if (fLevel % kSpacing == 0) {
        fKept.push_back(fNow);
      }
      if (xReaches(fNow, fLevel, fSizeA, fSizeB)) {
        return static_cast<std::size_t>(fLevel);
      }
      if (static_cast<std::size_t>(fLevel) == most) {
        return std::nullopt;
      }
      xStep(fLevel + 1, fNow, fNext);
      fNow.swap(fNext);
    }
  }

  /// Behind `search`: whether so many values of both are behind one at this level.
  bool reaches(std::size_t level, std::size_t takenA, std::size_t takenB) {
    const auto number = static_cast<Count>(level);
    return xReaches(xLevel(number), number, static_cast<Count>(takenA), static_cast<Count>(takenB));
  }

  /// Behind a `search` in vain: the place that is furthest from the first corner.
  PlacePair furthest() const {
    Count mostBoth = -1;
    Count bestA = 0;
    Count bestB = 0;
    for (Count i = 0; i <= fLevel; ++i) {
      const Count a = fNow[static_cast<std::size_t>(i)];
      const Count b = a - (2 * i - fLevel);
      const bool isNearer = std::abs(a - b) < std::abs(bestA - bestB);
      if (a >= 0 && (a + b > mostBoth || (a + b == mostBoth && isNearer))) {
        mostBoth = a + b;
        bestA = a;
        bestB = b;
      }
    }
    return {fArea.from.a + static_cast<std::size_t>(bestA),
            fArea.from.b + static_cast<std::size_t>(bestB)};
  }

private:
  using Count = std::ptrdiff_t;
  using Stored = std::int32_t;
  using Level = std::vector<Stored>;

  /// Every so many levels one is kept.
  static constexpr Count kSpacing = 64;
  static constexpr Stored kNowhere = -1;

  Count xSlide(Count a, Count b) const {
    while (a < fSizeA && b < fSizeB && xIsSame(a, b)) {
      ++a;
      ++b;
    }
    return a;
  }

  bool xIsSame(Count a, Count b) const {
    const auto takenA = static_cast<std::size_t>(a);
    const auto takenB = static_cast<std::size_t>(b);
    if constexpr (isReverse) {
      return fAlignment.xIsSame({fArea.to.a - 1 - takenA, fArea.to.b - 1 - takenB});
    } else {
      return fAlignment.xIsSame({fArea.from.a + takenA, fArea.from.b + takenB});
    }
  }

  /// The hot loop. The diagonals of a level are 2 apart, from -level to level.
  void xStep(Count level, const Level& before, Level& now) const {
    now.resize(static_cast<std::size_t>(level) + 1);
    for (Count i = 0; i <= level; ++i) {
      const auto place = static_cast<std::size_t>(i);
      const Count diagonal = 2 * i - level;
      Count a = kNowhere;
      if (diagonal <= fSizeA && -diagonal <= fSizeB) {
        if (i > 0 && before[place - 1] >= 0) {
          a = std::min<Count>(before[place - 1] + Count{1}, fSizeA);
        }
        if (i < level && before[place] >= 0) {
          a = std::max<Count>(a, std::min<Count>(before[place], fSizeB + diagonal));
        }
        a = a < 0 ? a : xSlide(a, a - diagonal);
      }
      now[place] = static_cast<Stored>(a);
    }
  }

  static bool xReaches(const Level& frontier, Count level, Count takenA, Count takenB) {
    const Count diagonal = takenA - takenB;
    return std::abs(diagonal) <= level && (diagonal + level) % 2 == 0 &&
           frontier[static_cast<std::size_t>((diagonal + level) / 2)] >= takenA;
  }

  const Level& xLevel(Count level) {
    const Count group = level / kSpacing;
    if (fGroup != group) {
      fGroup = group;
      fLevels.resize(kSpacing);
      fLevels[0] = fKept[static_cast<std::size_t>(group)];
      const Count last = std::min(fLevel, group * kSpacing + kSpacing - 1);
      for (Count number = group * kSpacing + 1; number <= last; ++number) {
        const auto place = static_cast<std::size_t>(number % kSpacing);
        xStep(number, fLevels[place - 1], fLevels[place]);
      }
    }
    return fLevels[static_cast<std::size_t>(level % kSpacing)];
  }

  const Alignment& fAlignment;
  const Area fArea;
  const Count fSizeA;
  const Count fSizeB;
  Count fLevel = 0;
  Level fNow;
  Level fNext;
  std::vector<Level> fKept;
  /// The levels between two that are kept, the first of these included, that were looked at last.
  std::vector<Level> fLevels;
  Count fGroup = -1;
};

/// Gives out places in the order of the caller's rows.
class Alignment::Turned final : public Sink {
public:
  explicit Turned(Sink& target) : fTarget(target) {}
  void match(PlacePair pair) override { fTarget.match({pair.b, pair.a}); }
  void border(PlacePair places) override { fTarget.border({places.b, places.a}); }

private:
  Sink& fTarget;
};

Alignment::Alignment(Values a, Values b, const SameWithin& isSame, const ValuePool& pool)
    : fA(a), fB(b), fIsSame(isSame), fIsExchanged(!isInOrder(a, b, pool)) {
  if (fIsExchanged) {
    std::swap(fA, fB);
  }
}

bool Alignment::find(Sink& sink) const {
  if (fIsExchanged) {
    Turned turned(sink);
    return xFind(turned);
  }
  return xFind(sink);
}

bool Alignment::xFind(Sink& sink) const {
  bool hasWindows = false;
  PlacePair at;
  while (true) {
    // Equal values at once always belong to a longest row.
    while (at.a < fA.size() && at.b < fB.size() && xIsSame(at)) {
      sink.match(at);
      at = {at.a + 1, at.b + 1};
    }
    const Area rest{at, {fA.size(), fB.size()}};
    if (rest.isEmpty()) {
      return hasWindows;
    }
    Frontiers<false> ahead(*this, rest);
    if (const std::optional<std::size_t> unmatched = ahead.search(kMostUnmatched)) {
      Frontiers<true> back(*this, rest);
      back.search(*unmatched);
      xWalk(rest, *unmatched, back, [&sink](PlacePair pair) {
        sink.match(pair);
        return true;
      });
      return hasWindows;
    }
    const Area part{at, ahead.furthest()};
    Frontiers<true> back(*this, part);
    const std::size_t unmatched = back.search(kMostUnmatched).value_or(kMostUnmatched);
    if (const std::optional<PlacePair> last = xLastAgreement(part, unmatched, back)) {
      xWalk(part, unmatched, back, [&sink, &last](PlacePair pair) {
        sink.match(pair);
        return pair != *last;
      });
      at = {last->a + 1, last->b + 1};
    } else {
      hasWindows = true;
      at = xFindInWindows(at, sink);
    }
  }
}

/// Calls `match` for each pair of a longest common row of an area, until it returns false.
template <class Match> void Alignment::xWalk(const Area& area, std::size_t unmatched,
                                             Frontiers<true>& back, const Match& match) const {
  PlacePair at = area.from;
  while (at.a < area.to.a && at.b < area.to.b) {
    if (!xIsSame(at)) {
      const std::optional<PlacePair> next = xNearest(area, at, unmatched, back);
      if (!next) {
        return;
      }
      unmatched -= next->a - at.a + next->b - at.b;
      at = *next;
    }
    if (!match(at)) {
      return;
    }
    at = {at.a + 1, at.b + 1};
  }
}

/// The next pair of a longest common row, with the fewest values before it; `unmatched` are those
/// between here and the area's end.
std::optional<PlacePair> Alignment::xNearest(const Area& area, PlacePair from,
                                             std::size_t unmatched, Frontiers<true>& back) const {
  const std::size_t mostA = area.to.a - from.a - 1;
  const std::size_t mostB = area.to.b - from.b - 1;
  std::optional<PlacePair> best;
  GK::GKMicros bestApart = 0;
  for (std::size_t skipped = 1; skipped <= std::min(unmatched, mostA + mostB) && !best; ++skipped) {
    for (std::size_t a = skipped - std::min(skipped, mostB); a <= std::min(skipped, mostA); ++a) {
      const PlacePair pair{from.a + a, from.b + skipped - a};
      if (!xIsSame(pair) ||
          !back.reaches(unmatched - skipped, area.to.a - pair.a - 1, area.to.b - pair.b - 1)) {
        continue;
      }
      const GK::GKMicros apart = std::abs(fA[pair.a].time - fB[pair.b].time);
      if (!best || apart < bestApart) {
        best = pair;
        bestApart = apart;
      }
    }
  }
  return best;
}

/// The last pair of the last row of `kAgreement` equal values that follow each other.
std::optional<PlacePair> Alignment::xLastAgreement(const Area& area, std::size_t unmatched,
                                                   Frontiers<true>& back) const {
  std::optional<PlacePair> last;
  PlacePair before;
  std::size_t row = 0;
  xWalk(area, unmatched, back, [&](PlacePair pair) {
    row = pair == PlacePair{before.a + 1, before.b + 1} ? row + 1 : 1;
    before = pair;
    if (row >= kAgreement) {
      last = pair;
    }
    return true;
  });
  return last;
}

/// Returns where values agree again, or the end of a row.
PlacePair Alignment::xFindInWindows(PlacePair from, Sink& sink) const {
  PlacePair at = from;
  while (at.a < fA.size() && at.b < fB.size()) {
    const GK::GKMicros begin = std::min(fA[at.a].time, fB[at.b].time);
    const GK::GKMicros end = (begin / kWindow + 1) * kWindow;
    const Area window{at, {firstNotBefore(fA, at.a, end), firstNotBefore(fB, at.b, end)}};
    std::size_t row = 0;
    PlacePair next = at;
    xFindInWindow(window, [&](PlacePair pair) {
      sink.match(pair);
      row = pair == next ? row + 1 : 1;
      next = {pair.a + 1, pair.b + 1};
      return true;
    });
    at = window.to;
    sink.border(at);
    if (next == at && row >= kAgreement) {
      return at;
    }
  }
  return at;
}

template <class Match> void Alignment::xFindInWindow(const Area& area, const Match& match) const {
  if (area.isEmpty() || !xHasCommon(area)) {
    return;
  }
  Frontiers<true> back(*this, area);
  if (const std::optional<std::size_t> unmatched = back.search(kMostUnmatched)) {
    xWalk(area, *unmatched, back, match);
    return;
  }
  // So many in so short a time are compared one by one, in their order.
  for (PlacePair at = area.from; at.a < area.to.a && at.b < area.to.b; at = {at.a + 1, at.b + 1}) {
    if (xIsSame(at)) {
      match(at);
    }
  }
}

/// False only where no value of the area has an equal one.
bool Alignment::xHasCommon(const Area& area) const {
  if (!fIsSame.isExact()) {
    return true;
  }
  const auto sorted = [](Values values) {
    std::vector<ValuePool::Word> words;
    words.reserve(values.size());
    for (const ReportedValue& value : values) {
      // Both zeros are the same.
      const bool isZero = ValuePool::typeOf(value.word) == GK::GKValue::Type::Float &&
                          ValuePool::floatOf(value.word) == 0.0F;
      words.push_back(isZero ? 0 : value.word);
    }
    std::ranges::sort(words);
    return words;
  };
  const auto wordsA = sorted(fA.subspan(area.from.a, area.to.a - area.from.a));
  const auto wordsB = sorted(fB.subspan(area.from.b, area.to.b - area.from.b));
  auto a = wordsA.begin();
  auto b = wordsB.begin();
  while (a != wordsA.end() && b != wordsB.end() && *a != *b) {
    ++(*a < *b ? a : b);
  }
  return a != wordsA.end() && b != wordsB.end();
}

} // namespace gk::formats
