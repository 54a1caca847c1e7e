#include "formats/compare/Comparison.h"

#include "formats/compare/Alignment.h"
#include "messages/text/FormatError.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <queue>
#include <utility>

namespace gk::formats {

namespace {

const std::vector<ReportedValue> kNoValues;

} // namespace

/// A difference of one name, in eight bytes.
struct Comparison::Place {
  static constexpr std::uint32_t kNone = 0x7FFF'FFFF;

  std::uint32_t a : 31;
  std::uint32_t isChanged : 1;
  std::uint32_t b : 31;

  /// An order that does not know which of the runs is the first one.
  std::pair<std::uint32_t, std::uint32_t> order() const {
    const std::uint32_t left = a;
    const std::uint32_t right = b;
    return {std::min(left, right), std::max(left, right)};
  }
};

struct Comparison::Compared {
  Name name;
  const std::vector<ReportedValue>* a = &kNoValues;
  const std::vector<ReportedValue>* b = &kNoValues;
  /// In the order of time.
  std::vector<Place> places;
};

/// Makes differences of what belongs together.
class Comparison::Collector final : public Alignment::Sink {
public:
  Collector(Compared& compared, GK::GKMicros tolerance)
      : fCompared(compared), fTolerance(tolerance) {}

  void match(PlacePair pair) override {
    border(pair);
    fNext = {pair.a + 1, pair.b + 1};
    if (std::abs((*fCompared.a)[pair.a].time - (*fCompared.b)[pair.b].time) > fTolerance) {
      xAdd(xPlace(pair.a, pair.b, false));
      ++fCompared.name.counts.moved;
    }
  }

  void border(PlacePair places) override {
    while (fNext.a < places.a && fNext.b < places.b) {
      xAdd(xPlace(fNext.a++, fNext.b++, true));
      ++fCompared.name.counts.changed;
    }
    while (fNext.a < places.a) {
      xAdd(xPlace(fNext.a++, Place::kNone, false));
      ++fCompared.name.counts.missing;
    }
    while (fNext.b < places.b) {
      xAdd(xPlace(Place::kNone, fNext.b++, false));
      ++fCompared.name.counts.extra;
    }
  }

private:
  static Place xPlace(std::size_t a, std::size_t b, bool isChanged) {
    Place place{};
    place.a = static_cast<std::uint32_t>(a) & Place::kNone;
    place.b = static_cast<std::uint32_t>(b) & Place::kNone;
    place.isChanged = isChanged ? 1 : 0;
    return place;
  }
  void xAdd(const Place& place) {
    makeRoom(fCompared.places);
    fCompared.places.push_back(place);
  }

  Compared& fCompared;
  const GK::GKMicros fTolerance;
  /// The first places that nothing has been said of.
  PlacePair fNext;
};

std::string_view differenceName(DifferenceKind kind) {
  switch (kind) {
  case DifferenceKind::Missing:
    return "missing";
  case DifferenceKind::Extra:
    return "extra";
  case DifferenceKind::Changed:
    return "changed";
  case DifferenceKind::Moved:
    break;
  }
  return "moved";
}

DifferenceCounts& DifferenceCounts::operator+=(const DifferenceCounts& more) noexcept {
  missing += more.missing;
  extra += more.extra;
  changed += more.changed;
  moved += more.moved;
  return *this;
}

std::string Comparison::Name::text() const {
  return kind == LineKind::Event ? name : std::string(lineKindName(kind)) + " " + name;
}

GK::GKMicros Comparison::Difference::time() const noexcept {
  if (a == nullptr || b == nullptr) {
    return (a != nullptr ? a : b)->time;
  }
  return std::min(a->time, b->time);
}

Comparison::Comparison(const ReportedRun& a, const ReportedRun& b,
                       const CompareTolerance& tolerance)
    : fA(a), fB(b) {
  std::map<std::pair<std::string_view, LineKind>, Compared> compared;
  const auto add = [&](const ReportedRun& run, auto member, auto count) {
    for (const ReportedRun::Row& row : run.rows()) {
      if (!a.told.contains(row.kind) || !b.told.contains(row.kind)) {
        continue;
      }
      if (row.values.size() >= Place::kNone) {
        throw messages::FormatError("more values of " + row.name + " than can be compared");
      }
      Compared& one = compared[{row.name, row.kind}];
      one.name.kind = row.kind;
      one.name.name = row.name;
      one.*member = &row.values;
      one.name.*count = row.values.size();
    }
  };
  add(a, &Compared::a, &Name::valuesA);
  add(b, &Compared::b, &Name::valuesB);
  fCompared.reserve(compared.size());
  for (auto& [key, one] : compared) {
    fCompared.push_back(std::move(one));
    xCompare(fCompared.back(), tolerance);
    fCounts += fCompared.back().name.counts;
  }
}

Comparison::~Comparison() = default;

void Comparison::xCompare(Compared& compared, const CompareTolerance& tolerance) {
  const SameWithin isSame(fA.pool(), tolerance.value);
  Collector collector(compared, tolerance.time);
  compared.name.isInWindows =
      Alignment(*compared.a, *compared.b, isSame, fA.pool()).find(collector);
  collector.border({compared.a->size(), compared.b->size()});
  // What is in one run only may be told behind what is later in the other one.
  std::ranges::sort(compared.places, [&compared](const Place& left, const Place& right) {
    const GK::GKMicros leftTime = xDifference(compared, left).time();
    const GK::GKMicros rightTime = xDifference(compared, right).time();
    return leftTime != rightTime ? leftTime < rightTime : left.order() < right.order();
  });
}

Comparison::Difference Comparison::xDifference(const Compared& compared, const Place& place) {
  Difference difference;
  difference.name = &compared.name;
  difference.a = place.a == Place::kNone ? nullptr : &(*compared.a)[place.a];
  difference.b = place.b == Place::kNone ? nullptr : &(*compared.b)[place.b];
  difference.kind = difference.b == nullptr   ? DifferenceKind::Missing
                    : difference.a == nullptr ? DifferenceKind::Extra
                    : place.isChanged != 0    ? DifferenceKind::Changed
                                              : DifferenceKind::Moved;
  return difference;
}

std::vector<const Comparison::Name*> Comparison::names() const {
  std::vector<const Name*> names;
  names.reserve(fCompared.size());
  for (const Compared& compared : fCompared) {
    names.push_back(&compared.name);
  }
  return names;
}

void Comparison::forEach(const std::function<bool(const Difference&)>& take) const {
  /// The next difference of a name.
  struct Next {
    GK::GKMicros time;
    std::size_t name;
    std::size_t place;
    bool operator>(const Next& other) const {
      return time != other.time ? time > other.time : name > other.name;
    }
  };
  std::priority_queue<Next, std::vector<Next>, std::greater<>> queue;
  const auto push = [&](std::size_t name, std::size_t place) {
    const Compared& compared = fCompared[name];
    if (place < compared.places.size()) {
      queue.push({xDifference(compared, compared.places[place]).time(), name, place});
    }
  };
  for (std::size_t i = 0; i < fCompared.size(); ++i) {
    push(i, 0);
  }
  while (!queue.empty()) {
    const Next next = queue.top();
    queue.pop();
    if (!take(xDifference(fCompared[next.name], fCompared[next.name].places[next.place]))) {
      return;
    }
    push(next.name, next.place + 1);
  }
}

std::vector<LineKind> Comparison::leftOut() const {
  std::vector<LineKind> kinds;
  for (std::size_t i = 0; i < kLineKinds; ++i) {
    const auto kind = static_cast<LineKind>(i);
    if (fA.isWanted(kind) && (!fA.told.contains(kind) || !fB.told.contains(kind))) {
      kinds.push_back(kind);
    }
  }
  return kinds;
}

} // namespace gk::formats
