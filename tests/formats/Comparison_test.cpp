#include "formats/compare/ComparisonJson.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using gk::formats::CompareTolerance;
using gk::formats::Comparison;
using gk::formats::DifferenceKind;
using gk::formats::LineKind;
using gk::formats::LineKinds;
using gk::formats::ReportedChoice;
using gk::formats::ReportedRun;
using gk::formats::ValuePool;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr GK::GKMicros kSecond = 1'000'000;

class ComparisonTest : public testing::Test {
protected:
  /// "missing X 1.0@2", a word for each difference.
  static std::vector<std::string> wordsOf(const Comparison& comparison) {
    std::vector<std::string> words;
    comparison.forEach([&](const Comparison::Difference& difference) {
      std::string word(differenceName(difference.kind));
      word += " " + difference.name->text();
      for (const auto* value : {difference.a, difference.b}) {
        word += value == nullptr ? " -" : " ";
        if (value != nullptr) {
          comparison.a().pool().appendJson(word, value->word);
          word += "@" + std::to_string(value->time);
        }
      }
      words.push_back(word);
      return true;
    });
    return words;
  }

  std::vector<std::string> compare(const CompareTolerance& tolerance = {}) {
    fA.settle();
    fB.settle();
    return wordsOf(Comparison(fA, fB, tolerance));
  }

  static std::string jsonOf(const Comparison& comparison, std::string_view file = {}) {
    std::string text;
    writeComparison(comparison, file, [&text](std::string_view part) { text += part; });
    return text;
  }

  void event(ReportedRun& run, GK::GKMicros time, const char* name, const GK::GKValue& value) {
    run.add(time, LineKind::Event, name, value);
  }

  ReportedChoice fChoice{LineKinds::all(), {"Ignored", "Un*"}};
  ValuePool fPool;
  ReportedRun fA{fPool, fChoice};
  ReportedRun fB{fPool, fChoice};
};

TEST_F(ComparisonTest, WhatLiesBetweenEqualValuesIsPairedInOrderAndTheRestIsMissingOrExtra) {
  for (const int value : {1, 2, 3, 9}) {
    event(fA, value, "X", value);
  }
  event(fB, 1, "X", 1);
  event(fB, 2, "X", 5);
  event(fB, 10, "X", 9);
  event(fB, 11, "X", 7);
  event(fB, 12, "X", 8);
  EXPECT_THAT(compare(), ElementsAre("changed X 2@2 5@2", "missing X 3@3 -", "moved X 9@9 9@10",
                                     "extra X - 7@11", "extra X - 8@12"));
}

TEST_F(ComparisonTest, OfEqualValuesTheLastOnesAreMissing) {
  for (const GK::GKMicros time : {1, 2, 3}) {
    event(fA, time, "X", 1);
  }
  event(fB, 2, "X", 1);
  EXPECT_THAT(compare(), ElementsAre("moved X 1@1 1@2", "missing X 1@2 -", "missing X 1@3 -"));
}

TEST_F(ComparisonTest, APairIsMovedWhenItsTimesAreFurtherApartThanTheTolerance) {
  event(fA, kSecond, "X", 1.0F);
  event(fB, kSecond + 20'000, "X", 1.0F);
  EXPECT_THAT(compare(), ElementsAre("moved X 1.0@1000000 1.0@1020000"));
  EXPECT_THAT(compare({0, 20'000}), IsEmpty());
  EXPECT_THAT(compare({0, 19'999}), ElementsAre("moved X 1.0@1000000 1.0@1020000"));
}

TEST_F(ComparisonTest, TheFirstInTimeComesFirstWhateverItsName) {
  event(fA, 3 * kSecond, "A", 1);
  event(fB, 1 * kSecond, "C", 1);
  event(fA, 2 * kSecond, "B", 1);
  EXPECT_THAT(compare(),
              ElementsAre("extra C - 1@1000000", "missing B 1@2000000 -", "missing A 1@3000000 -"));
}

TEST_F(ComparisonTest, KindsOfLinesAreToldApartAndAnotherTypeIsAnotherValue) {
  event(fA, 0, "X", 1);
  fB.add(0, LineKind::Micro, "X", 1);
  event(fA, 0, "Y", 1);
  event(fB, 0, "Y", 1.0F);
  EXPECT_THAT(compare(),
              ElementsAre("missing X 1@0 -", "extra micro X - 1@0", "changed Y 1@0 1.0@0"));
}

TEST_F(ComparisonTest, WhatIsIgnoredOrToldByOneAloneIsLeftOut) {
  event(fA, 0, "Ignored", 1);
  event(fA, 0, "Unwanted", 1);
  event(fA, 0, "NotIgnored", 1);
  fB.add(0, LineKind::Data, "Key", 1);
  fA.told = LineKinds::parse("event");
  EXPECT_THAT(compare(), ElementsAre("missing NotIgnored 1@0 -"));
  EXPECT_THAT(fA.ignored(), ElementsAre("Ignored", "Unwanted"));
  EXPECT_THAT(Comparison(fA, fB, {}).leftOut(), testing::Contains(LineKind::Data));
}

TEST_F(ComparisonTest, ValuesThatComeOutOfOrderArePutIntoIt) {
  event(fA, 2, "X", 2);
  event(fA, 1, "X", 1);
  event(fB, 1, "X", 1);
  event(fB, 2, "X", 2);
  EXPECT_THAT(compare(), IsEmpty());
}

TEST_F(ComparisonTest, AsJsonItHasCountsNamesDifferencesAndWhatIsKnownOfBoth) {
  event(fA, kSecond, "X", 1.0F);
  event(fA, 2 * kSecond, "Y", "word");
  event(fB, kSecond, "X", 1.5F);
  event(fB, 2 * kSecond, "Y", "word");
  event(fB, 3 * kSecond, "Y", true);
  fA.facts = {{"file", "a.jsonl"}};
  fB.facts = {{"file", "b.csv"}, {"version", "1"}};
  EXPECT_EQ(jsonOf(Comparison(fA, fB, {})),
            R"({"same":false,"missing":0,"extra":1,"changed":1,"moved":0,"names":{)"
            R"("X":{"missing":0,"extra":0,"changed":1,"moved":0},)"
            R"("Y":{"missing":0,"extra":1,"changed":0,"moved":0}},"differences":[)"
            R"({"kind":"changed","name":"X","a":{"t":1,"value":1.0},"b":{"t":1,"value":1.5}},)"
            R"({"kind":"extra","name":"Y","b":{"t":3,"value":true}}],)"
            R"("a":{"file":"a.jsonl"},"b":{"file":"b.csv","version":"1"}})"
            "\n");
  EXPECT_THAT(jsonOf(Comparison(fA, fA, {}), "night.mcap"),
              testing::StartsWith(R"({"file":"night.mcap","same":true,"missing":0,)"));
}

/// Random runs: a dozen names, values that repeat, times that are often the same.
class Runs : public ComparisonTest {
protected:
  void fill(ReportedRun& run, unsigned seed, std::size_t count) {
    std::mt19937 random(seed);
    GK::GKMicros time = 0;
    for (std::size_t i = 0; i < count; ++i) {
      time += static_cast<GK::GKMicros>(random() % 3) * 20'000;
      const std::string name = "Name" + std::to_string(random() % 12);
      event(run, time, name.c_str(), xValue(random));
    }
  }

private:
  static GK::GKValue xValue(std::mt19937& random) {
    switch (random() % 4) {
    case 0:
      return static_cast<int>(random() % 3);
    case 1:
      return static_cast<float>(random() % 3);
    case 2:
      return random() % 2 == 0;
    default:
      return GK::GKValue("word" + std::to_string(random() % 3));
    }
  }
};

TEST_F(Runs, ARunNeverDiffersFromItself) {
  for (unsigned seed = 0; seed < 30; ++seed) {
    ReportedRun one(fPool, fChoice);
    ReportedRun again(fPool, fChoice);
    fill(one, seed, 400);
    fill(again, seed, 400);
    EXPECT_TRUE(Comparison(one, again, {}).isSame()) << "seed " << seed;
  }
}

TEST_F(Runs, ExchangingTheRunsExchangesMissingAndExtraAndNothingElse) {
  for (unsigned seed = 0; seed < 60; ++seed) {
    ReportedRun a(fPool, fChoice);
    ReportedRun b(fPool, fChoice);
    fill(a, 2 * seed, 150);
    fill(b, 2 * seed + 1, 150);
    const Comparison there(a, b, {});
    const Comparison back(b, a, {});
    std::vector<std::string> expected;
    back.forEach([&](const Comparison::Difference& difference) {
      expected.push_back(difference.name->name);
      return true;
    });
    std::vector<std::string> names;
    there.forEach([&](const Comparison::Difference& difference) {
      names.push_back(difference.name->name);
      return true;
    });
    EXPECT_EQ(names, expected) << "seed " << seed;
    EXPECT_EQ(there.counts().missing, back.counts().extra) << "seed " << seed;
    EXPECT_EQ(there.counts().extra, back.counts().missing) << "seed " << seed;
    EXPECT_EQ(there.counts().changed, back.counts().changed) << "seed " << seed;
    EXPECT_EQ(there.counts().moved, back.counts().moved) << "seed " << seed;
  }
}

TEST_F(Runs, APlantedDifferenceIsFoundAndIsTheOnlyOne) {
  struct Event {
    GK::GKMicros time;
    std::string name;
    GK::GKValue value;
  };
  for (unsigned seed = 0; seed < 200; ++seed) {
    std::mt19937 random(seed);
    std::vector<Event> events;
    GK::GKMicros time = 0;
    for (int i = 0; i < 300; ++i) {
      time += 20'000 * (1 + static_cast<GK::GKMicros>(random() % 3));
      // No two of a name in a row are equal.
      events.push_back({time, "Name" + std::to_string(random() % 5), i});
    }
    std::vector<Event> other = events;
    const auto place = static_cast<std::ptrdiff_t>(random() % events.size());
    const auto kind = static_cast<DifferenceKind>(seed % 4);
    Event& planted = other[static_cast<std::size_t>(place)];
    const std::string name = planted.name;
    switch (kind) {
    case DifferenceKind::Missing:
      other.erase(other.begin() + place);
      break;
    case DifferenceKind::Extra:
      other.insert(other.begin() + place, {planted.time - 1, name, "planted"});
      break;
    case DifferenceKind::Changed:
      planted.value = "planted";
      break;
    case DifferenceKind::Moved:
      planted.time += 1;
      break;
    }
    ReportedRun a(fPool, fChoice);
    ReportedRun b(fPool, fChoice);
    for (const Event& one : events) {
      event(a, one.time, one.name.c_str(), one.value);
    }
    for (const Event& one : other) {
      event(b, one.time, one.name.c_str(), one.value);
    }
    const Comparison comparison(a, b, {});
    EXPECT_EQ(comparison.counts().sum(), 1U) << "seed " << seed;
    comparison.forEach([&](const Comparison::Difference& difference) {
      EXPECT_EQ(difference.name->name, name) << "seed " << seed;
      EXPECT_EQ(difference.kind, kind) << "seed " << seed;
      return true;
    });
  }
}

} // namespace
