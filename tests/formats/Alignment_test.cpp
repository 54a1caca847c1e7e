#include "formats/compare/Alignment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

// Which values of two rows belong together, against a search through all possibilities.

namespace {

using gk::formats::Alignment;
using gk::formats::PlacePair;
using gk::formats::ReportedValue;
using gk::formats::SameWithin;
using gk::formats::ValuePool;
using testing::IsEmpty;

using Pairs = std::vector<std::pair<std::size_t, std::size_t>>;
using Row = std::vector<ReportedValue>;

constexpr GK::GKMicros kTick = 20'000;

class Collected final : public Alignment::Sink {
public:
  void match(PlacePair pair) override { pairs.emplace_back(pair.a, pair.b); }
  void border(PlacePair places) override { borders.emplace_back(places.a, places.b); }

  Pairs pairs;
  Pairs borders;
  bool hasWindows = false;
};

class AlignmentTest : public testing::Test {
protected:
  /// Values one tick apart.
  Row row(const std::vector<int>& values, GK::GKMicros begin = 0) {
    Row row;
    for (const int value : values) {
      row.push_back({begin, fPool.word(GK::GKValue(value))});
      begin += kTick;
    }
    return row;
  }

  Collected align(const Row& a, const Row& b, double tolerance = 0) const {
    Collected found;
    const SameWithin isSame(fPool, tolerance);
    found.hasWindows = Alignment(a, b, isSame, fPool).find(found);
    return found;
  }

  ValuePool fPool;
};

/// A longest common row by looking at every place, with the rule for equally long ones.
class EveryPossibility {
public:
  EveryPossibility(const Row& a, const Row& b)
      : fA(a), fB(b), fLengths((a.size() + 1) * (b.size() + 1)) {
    for (std::size_t i = a.size(); i-- > 0;) {
      for (std::size_t j = b.size(); j-- > 0;) {
        fLengths[xPlace(i, j)] = a[i].word == b[j].word
                                     ? xLength(i + 1, j + 1) + 1
                                     : std::max(xLength(i + 1, j), xLength(i, j + 1));
      }
    }
  }

  Pairs find() {
    Pairs pairs;
    std::size_t i = 0;
    std::size_t j = 0;
    while (xLength(i, j) > 0) {
      // Fewest values in front, then nearest in time.
      using Rank = std::tuple<std::size_t, GK::GKMicros>;
      Rank best{fA.size() + fB.size(), 0};
      std::pair<std::size_t, std::size_t> next;
      for (std::size_t a = i; a < fA.size(); ++a) {
        for (std::size_t b = j; b < fB.size(); ++b) {
          const bool isFirst =
              fA[a].word == fB[b].word && xLength(a + 1, b + 1) + 1 == xLength(i, j);
          const Rank rank{a - i + b - j, std::abs(fA[a].time - fB[b].time)};
          if (isFirst && rank < best) {
            best = rank;
            next = {a, b};
          }
        }
      }
      pairs.push_back(next);
      i = next.first + 1;
      j = next.second + 1;
    }
    return pairs;
  }

private:
  std::size_t xPlace(std::size_t a, std::size_t b) const { return a * (fB.size() + 1) + b; }
  /// Of a longest row from there on.
  std::size_t xLength(std::size_t a, std::size_t b) const { return fLengths[xPlace(a, b)]; }

  const Row& fA;
  const Row& fB;
  std::vector<std::size_t> fLengths;
};

Pairs exchanged(Pairs pairs) {
  for (auto& [a, b] : pairs) {
    std::swap(a, b);
  }
  return pairs;
}

TEST_F(AlignmentTest, EqualRowsBelongTogetherOneByOne) {
  const Row one = row({1, 1, 2, 1});
  EXPECT_THAT(align(one, one).pairs, (Pairs{{0, 0}, {1, 1}, {2, 2}, {3, 3}}));
}

TEST_F(AlignmentTest, NothingBelongsToAnEmptyRow) {
  EXPECT_THAT(align(row({1, 2}), row({})).pairs, IsEmpty());
  EXPECT_THAT(align(row({}), row({})).pairs, IsEmpty());
}

TEST_F(AlignmentTest, OfEquallyLongRowsTheEarliestInBothIsTaken) {
  EXPECT_THAT(align(row({1}), row({1, 1, 1})).pairs, (Pairs{{0, 0}}));
  EXPECT_THAT(align(row({5, 1, 1, 2}), row({1, 2})).pairs, (Pairs{{1, 0}, {3, 1}}));
  EXPECT_THAT(align(row({1, 0, 1, 0}), row({0, 1})).pairs, (Pairs{{1, 0}, {2, 1}}));
}

TEST_F(AlignmentTest, AValueThatIsInsertedMovesNothingElse) {
  EXPECT_THAT(align(row({1, 2, 3, 4}), row({1, 9, 2, 3, 4})).pairs,
              (Pairs{{0, 0}, {1, 2}, {2, 3}, {3, 4}}));
}

TEST_F(AlignmentTest, IsTheEarliestLongestRowOfAllAndTheSameTheOtherWayRound) {
  std::mt19937 random(7);
  for (int round = 0; round < 1000; ++round) {
    const auto some = [&](int most) {
      std::vector<int> values(random() % 13);
      for (int& value : values) {
        value = static_cast<int>(random() % static_cast<unsigned>(most));
      }
      return values;
    };
    const int most = 1 + round % 4;
    const Row a = row(some(most));
    const Row b = row(some(most), static_cast<GK::GKMicros>(random() % 3) * kTick);
    const Pairs found = align(a, b).pairs;
    const Pairs turned = exchanged(align(b, a).pairs);
    EXPECT_EQ(found, turned) << "round " << round;
    const Pairs expected = EveryPossibility(a, b).find();
    ASSERT_EQ(found.size(), expected.size()) << "round " << round;
    // Pairs as near to each other in time are chosen between by what the rows are.
    const Pairs other = exchanged(EveryPossibility(b, a).find());
    EXPECT_TRUE(found == expected || found == other) << "round " << round;
  }
}

TEST_F(AlignmentTest, LevelsThatWereNotKeptAreMadeAgain) {
  // Some hundred unmatched values: more than lie between two levels that are kept.
  std::mt19937 random(11);
  for (int round = 0; round < 5; ++round) {
    std::vector<int> a(220);
    std::vector<int> b(200);
    for (std::vector<int>* values : {&a, &b}) {
      for (int& value : *values) {
        value = static_cast<int>(random() % 6);
      }
    }
    const Row rowA = row(a);
    const Row rowB = row(b);
    EXPECT_EQ(align(rowA, rowB).pairs.size(), EveryPossibility(rowA, rowB).find().size());
  }
}

TEST_F(AlignmentTest, FloatsWithinTheToleranceBelongTogetherItsEndIncluded) {
  const auto floats = [&](std::vector<float> values) {
    Row row;
    for (const float value : values) {
      row.push_back({static_cast<GK::GKMicros>(row.size()) * kTick, fPool.word(value)});
    }
    return row;
  };
  const Row a = floats({1.0F, 1.0F, 1.0F});
  const Row b = floats({1.1F, 1.1001F, 0.9F});
  EXPECT_THAT(align(a, b, 0.1).pairs, (Pairs{{0, 0}, {1, 2}}));
  EXPECT_THAT(align(a, b, 0.0999).pairs, IsEmpty());
  EXPECT_THAT(align(floats({0.0F}), floats({-0.0F})).pairs, (Pairs{{0, 0}}));
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_THAT(align(floats({nan}), floats({-nan})).pairs, (Pairs{{0, 0}}));
  const float infinite = std::numeric_limits<float>::infinity();
  EXPECT_THAT(align(floats({infinite}), floats({1.0F}), 1e38).pairs, IsEmpty());
}

TEST_F(AlignmentTest, ManyDifferencesThatDoNotFollowEachOtherAreFoundExactly) {
  std::vector<int> a(110'000);
  for (std::size_t i = 0; i < a.size(); ++i) {
    a[i] = static_cast<int>(i * 7919 % 1000);
  }
  std::vector<int> b = a;
  std::size_t changed = 0;
  for (std::size_t i = 50; i < b.size(); i += 40) {
    b[i] = -1;
    ++changed;
  }
  const Collected found = align(row(a), row(b));
  EXPECT_GT(2 * changed, Alignment::kMostUnmatched);
  EXPECT_FALSE(found.hasWindows);
  EXPECT_EQ(found.pairs.size(), a.size() - changed);
}

TEST_F(AlignmentTest, MoreDifferencesThanThatInARowAreMatchedInWindowsUntilValuesAgreeAgain) {
  // A minute in which the runs have nothing in common, then one tick less in B, then agreement.
  std::vector<int> a;
  std::vector<int> b;
  for (int i = 0; i < 3000; ++i) {
    a.push_back(i);
    b.push_back(1'000'000 + i);
  }
  for (int i = 0; i < 2000; ++i) {
    a.push_back(2'000'000 + i);
    b.push_back(2'000'000 + i);
  }
  const Collected found = align(row(a), row(b));
  EXPECT_TRUE(found.hasWindows);
  EXPECT_EQ(found.pairs.size(), 2000U);
  EXPECT_EQ(found.borders.front(), (std::pair<std::size_t, std::size_t>{500, 500}));
  EXPECT_EQ(found.borders.back(), (std::pair<std::size_t, std::size_t>{3500, 3500}));
}

TEST_F(AlignmentTest, AsManyDifferencesAsAreAllowedAreFoundExactly) {
  const auto rows = [&](std::size_t count) {
    std::vector<int> a;
    std::vector<int> b;
    for (std::size_t i = 0; i < count / 2; ++i) {
      a.push_back(static_cast<int>(i));
      b.push_back(-1 - static_cast<int>(i));
    }
    a.push_back(1'000'000);
    b.push_back(1'000'000);
    return std::pair(row(a), row(b));
  };
  const auto [a, b] = rows(Alignment::kMostUnmatched);
  EXPECT_FALSE(align(a, b).hasWindows);
  const auto [moreA, moreB] = rows(Alignment::kMostUnmatched + 2);
  EXPECT_TRUE(align(moreA, moreB).hasWindows);
}

} // namespace
