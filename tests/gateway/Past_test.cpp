#include "formats/mcap/Reader.h"
#include "formats/mcap/Source.h"
#include "formats/run/RunLogReader.h"
#include "gateway/past/Past.h"
#include "messages/json/Json.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <variant>
#include <vector>

namespace gk::gateway {
namespace {

constexpr GK::GKMicros kTick = 20'000;
constexpr GK::GKMicros kSecond = 1'000'000;
const std::string kHead = "Device/SubDeviceList/HeadYaw/Position/Sensor/Value";

/// A past of ticks at which one joint has moved on by 1.
class PastOf : public testing::Test {
protected:
  explicit PastOf(PastOptions options = {}) : sut(options) { sut.open(store); }

  void tick(int count) {
    for (int i = 0; i < count; ++i, time += kTick) {
      store->set(kHead, GK::GKValue(static_cast<float>(value++)));
      sut.onTick(time, "GKSensors");
    }
  }
  void raise(const std::string& name, const GK::GKValue& of = 1.0F) {
    GK::GKNotice notice;
    notice.time = time;
    notice.name = name;
    notice.value = of;
    sut.onNotice(notice);
  }
  boost::json::value read(const PastRange& range) {
    return messages::parseJson(sut.json(range, "session"));
  }
  static const boost::json::array& listOf(const boost::json::value& past, const char* name) {
    return past.at(name).as_array();
  }
  static std::vector<double> headsOf(const boost::json::value& past) {
    std::vector<double> heads;
    for (const auto& head : past.at("topics").at("/joint_states").at("HeadYaw").as_array()) {
      heads.push_back(head.to_number<double>());
    }
    return heads;
  }

  const std::shared_ptr<GK::GKMemoryStore> store = std::make_shared<GK::GKMemoryStore>();
  Past sut;
  GK::GKMicros time = 0;
  int value = 0;
};

TEST_F(PastOf, SamplesAreTheValuesAtTheirTicks) {
  tick(21);
  const boost::json::value past = read({});
  EXPECT_EQ(past.at("session"), "session");
  EXPECT_EQ(past.at("begin").to_number<double>(), 0);
  EXPECT_EQ(past.at("end").to_number<double>(), 0.4);
  EXPECT_TRUE(past.at("next").is_null());
  EXPECT_THAT(headsOf(past), testing::ElementsAre(0, 5, 10, 15, 20));
  EXPECT_EQ(listOf(past, "times").size(), 5U);
}

TEST_F(PastOf, APieceOfItHasWhatWasSoThen) {
  tick(100);
  const boost::json::value past = read({kSecond, kSecond + 5 * kTick, kTick, 1 << 20});
  EXPECT_THAT(headsOf(past), testing::ElementsAre(50, 51, 52, 53, 54, 55));
}

TEST_F(PastOf, EventsAreToldWithAndWithoutSamples) {
  tick(2);
  raise("A");
  tick(2);
  const boost::json::value past = read({std::nullopt, std::nullopt, 0, 1 << 20});
  ASSERT_EQ(listOf(past, "events").size(), 1U);
  EXPECT_EQ(listOf(past, "events")[0].at("name"), "A");
  EXPECT_EQ(listOf(past, "events")[0].at("t_s").to_number<double>(), 0.04);
  EXPECT_TRUE(listOf(past, "times").empty());
}

TEST_F(PastOf, AnAnswerEndsWhereItIsFullAndTellsWhereToGoOn) {
  tick(200);
  const boost::json::value first = read({std::nullopt, std::nullopt, kTick, 300});
  const std::vector<double> heads = headsOf(first);
  ASSERT_FALSE(first.at("next").is_null());
  ASSERT_LT(heads.size(), 200U);
  PastRange rest;
  rest.from = static_cast<GK::GKMicros>(first.at("next").to_number<double>() * 1e6 + 0.5);
  rest.step = kTick;
  EXPECT_EQ(headsOf(read(rest)).front(), heads.back() + 1);
}

class ShortPast : public PastOf {
protected:
  ShortPast() : PastOf({3 * kSecond, 1 << 20}) {}
};

TEST_F(ShortPast, WhatIsOlderIsForgottenAndTheRestIsAsItWas) {
  tick(500);
  const boost::json::value past = read({std::nullopt, std::nullopt, kSecond, 1 << 20});
  const double end = 499 * 0.02;
  EXPECT_NEAR(past.at("begin").to_number<double>(), end - 3, 1e-9);
  EXPECT_NEAR(past.at("end").to_number<double>(), end, 1e-9);
  EXPECT_EQ(headsOf(past).front(), 349);
}

class SmallPast : public PastOf {
protected:
  SmallPast() : PastOf({600 * kSecond, 20'000}) {}
};

TEST_F(SmallPast, NeverTakesMoreThanItMay) {
  tick(1000);
  for (int i = 0; i < 500; ++i) {
    raise("A");
    tick(1);
  }
  const boost::json::value past = read({});
  EXPECT_GT(past.at("begin").to_number<double>(), 20);
  EXPECT_LT(listOf(past, "events").size(), 500U);
  EXPECT_FALSE(listOf(past, "events").empty());
}

TEST_F(SmallPast, NeverTakesMoreThanItMayHoweverLargeItsEventsAre) {
  const std::string text(3000, 'x');
  for (int i = 0; i < 100; ++i) {
    raise("A", text);
    tick(1);
  }
  const std::size_t kept = listOf(read({}), "events").size();
  EXPECT_GE(kept, 2U);
  EXPECT_LE(kept * text.size(), 20'000U);
}

class NoPast : public PastOf {
protected:
  NoPast() : PastOf({0, 1 << 20}) {}
};

TEST_F(NoPast, KeepsNothing) {
  tick(10);
  EXPECT_FALSE(sut.isOn());
  EXPECT_EQ(sut.recording(kSecond, 0, {{"version", "x"}}, {}), std::nullopt);
}

/// What a recording tells a replay: the key's values with their times, and what was called.
struct Played {
  std::vector<std::pair<GK::GKMicros, float>> heads;
  std::vector<std::pair<GK::GKMicros, std::string>> calls;
  bool isContinued = false;
  std::size_t events = 0;
};

Played played(const std::string& bytes) {
  Played result;
  formats::mcap::MemorySource source(bytes);
  formats::mcap::Reader reader(source);
  formats::RunLogReader log;
  std::uint64_t head = 0;
  GK::GKMicros now = 0;
  while (const auto item = reader.next()) {
    const auto* message = std::get_if<formats::mcap::Message>(&*item);
    if (message == nullptr) {
      continue;
    }
    const std::string& topic = reader.channel(message->channelId).topic;
    result.events += topic == "/events" ? 1 : 0;
    if (topic != formats::kRunTopic) {
      continue;
    }
    log.begin(message->data, message->sequence, formats::kRunEncoding);
    while (auto entry = log.next()) {
      if (const auto* key = std::get_if<formats::RunKey>(&*entry); key && key->name == kHead) {
        head = key->index;
      } else if (const auto* turn = std::get_if<formats::RunTurn>(&*entry)) {
        now = turn->time;
      } else if (const auto* start = std::get_if<formats::RunStart>(&*entry)) {
        result.isContinued = start->isContinued;
      } else if (const auto* action = std::get_if<formats::RunAction>(&*entry)) {
        if (const auto* call = std::get_if<formats::CallAction>(&action->action)) {
          result.calls.emplace_back(now, call->label);
        }
      } else if (const auto* values = std::get_if<formats::RunValues>(&*entry)) {
        for (const formats::RunValue& value : values->values) {
          if (value.key == head) {
            result.heads.emplace_back(now, values->value(value).toFloat());
          }
        }
      }
    }
  }
  return result;
}

TEST_F(PastOf, ARecordingOfAllOfItPlaysEveryTick) {
  tick(3);
  raise("A");
  sut.onAction(time, formats::CallAction{"GKSonar", "subscribe", {GK::GKValue("me")}, "called"});
  tick(2);
  const Played all = played(sut.recording(kSecond, 0, {{"version", "x"}}, {}).value());
  EXPECT_FALSE(all.isContinued);
  // The first value stands before the run as well.
  EXPECT_THAT(all.heads,
              testing::ElementsAre(testing::Pair(0, 0), testing::Pair(kTick, 1),
                                   testing::Pair(2 * kTick, 2), testing::Pair(3 * kTick, 3),
                                   testing::Pair(4 * kTick, 4)));
  EXPECT_THAT(all.calls, testing::ElementsAre(testing::Pair(3 * kTick, "called")));
  EXPECT_EQ(all.events, 1U);
}

TEST_F(PastOf, ARecordingOfItsEndBeginsAtZeroWithWhatWasSoThen) {
  raise("A");
  tick(200);
  raise("B");
  tick(1);
  const std::vector<formats::Action> first = {
      formats::CallAction{"GKSonar", "subscribe", {GK::GKValue("me")}, "first"}};
  const Played end = played(sut.recording(kSecond, 0, {{"version", "x"}}, first).value());
  EXPECT_TRUE(end.isContinued);
  EXPECT_EQ(end.heads.front(), std::pair(GK::GKMicros(0), 150.0F));
  EXPECT_EQ(end.heads.back(), std::pair(kSecond, 200.0F));
  EXPECT_EQ(end.heads.size(), 51U);
  EXPECT_THAT(end.calls, testing::ElementsAre(testing::Pair(0, "first")));
  EXPECT_EQ(end.events, 1U);
}

TEST_F(SmallPast, NeverTakesMoreThanItMayHoweverMuchIsAskedForBetweenTwoTicks) {
  const std::string text(3000, 'x');
  tick(1);
  for (int i = 0; i < 100; ++i) {
    sut.onAction(time, formats::CallAction{"GKMine", "take", {GK::GKValue(text)}, "called"});
  }
  tick(1);
  const std::size_t kept =
      played(sut.recording(600 * kSecond, 0, {{"version", "x"}}, {}).value()).calls.size();
  EXPECT_GE(kept, 2U);
  EXPECT_LE(kept * text.size(), 20'000U);
}

} // namespace
} // namespace gk::gateway
