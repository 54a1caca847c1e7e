#include "extensions/fleet/Courier.h"
#include "messages/mqtt/MqttMessage.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gk::fleet {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

/// A courier with an outbox, a connection that the test plays, and a time that stands.
struct CourierTest : testing::Test {
  CourierTest()
      : outbox(Outbox::open({.file = folder.file("outbox.db")}).outbox),
        sut(
            "b1", {.window = 4, .live = 6, .backlogRate = 10},
            [this](const Entry& entry, bool isHistorical) -> std::optional<int> {
              if (!isOpen) {
                return std::nullopt;
              }
              if (entry.level == "Huge") {
                throw messages::MqttError("too large");
              }
              sent.push_back((entry.isGap() ? "gap" : entry.level) + std::to_string(entry.from) +
                             (isHistorical ? "h" : ""));
              return ++number;
            },
            [this](const Entry& entry, const std::string& why) {
              told.push_back(entry.level + ": " + why);
            }) {}

  /// Commits events and hands them to the courier, as the bridge does.
  void raise(std::uint64_t from, std::uint64_t to, const std::string& level = "E") {
    for (std::uint64_t seq = from; seq <= to; ++seq) {
      const Entry entry{"b1", seq, seq, 0, level, "{"};
      sut.add({outbox->commit({}, {entry}, {}).firstId, entry});
    }
  }
  void connect(std::uint64_t firstSeq) { sut.onConnected(now, firstSeq, outbox->nextId()); }
  std::vector<std::string> pump() {
    sent.clear();
    sut.pump(now, outbox.get());
    return sent;
  }
  /// The broker takes all that is on its way.
  void acknowledgeAll(int reason = 0) {
    for (; acknowledged < number; ++acknowledged) {
      sut.onPublished(acknowledged + 1, reason);
    }
    outbox->commit(sut.acknowledged(), {}, {});
    sut.acknowledged().clear();
  }

  test::TemporaryFolder folder;
  std::unique_ptr<Outbox> outbox;
  bool isOpen = true;
  int number = 0;
  int acknowledged = 0;
  std::vector<std::string> sent;
  std::vector<std::string> told;
  Courier::Time now{seconds(1000)};
  Courier sut;
};

TEST_F(CourierTest, WhatJustHappenedGoesAtOnceAndInOrder) {
  connect(1);
  raise(1, 3);
  EXPECT_THAT(pump(), ElementsAre("E1", "E2", "E3"));
  acknowledgeAll();
  EXPECT_EQ(outbox->count(), 0U);
}

TEST_F(CourierTest, NoMoreIsOnItsWayThanMayBe) {
  connect(1);
  raise(1, 6);
  EXPECT_EQ(pump().size(), 4U);
  EXPECT_THAT(pump(), IsEmpty());
  sut.onPublished(1, 0);
  EXPECT_THAT(pump(), ElementsAre("E5"));
}

TEST_F(CourierTest, BacklogFollowsAtItsRateAndIsHistorical) {
  raise(1, 3);
  connect(4);
  EXPECT_THAT(pump(), ElementsAre("E1h"));
  EXPECT_THAT(pump(), IsEmpty());
  now += milliseconds(99);
  EXPECT_THAT(pump(), IsEmpty());
  now += milliseconds(2);
  EXPECT_THAT(pump(), ElementsAre("E2h"));
}

TEST_F(CourierTest, WhatJustHappenedGoesBeforeTheBacklog) {
  raise(1, 2);
  connect(3);
  raise(3, 4);
  EXPECT_THAT(pump(), ElementsAre("E3", "E4", "E1h"));
}

TEST_F(CourierTest, TellsWhenTheBacklogGoesOn) {
  raise(1, 2);
  connect(3);
  const auto next = sut.pump(now, outbox.get());
  ASSERT_TRUE(next.has_value());
  EXPECT_EQ(*next, now + milliseconds(100));
}

TEST_F(CourierTest, WhatTheConnectionTakesTooSlowlyIsReadFromTheOutboxLater) {
  connect(1);
  raise(1, 12);
  acknowledgeAll();
  std::vector<std::string> all;
  for (int turn = 0; turn < 40; ++turn) {
    now += milliseconds(100);
    const std::vector<std::string> more = pump();
    all.insert(all.end(), more.begin(), more.end());
    acknowledgeAll();
  }
  EXPECT_EQ(all.size(), 12U);
  EXPECT_EQ(outbox->count(), 0U);
}

TEST_F(CourierTest, WhatWasOnItsWayWhenTheConnectionBrokeIsSentAgain) {
  connect(1);
  raise(1, 2);
  pump();
  sut.onPublished(1, 0);
  sut.onClosed();
  connect(3);
  now += seconds(1);
  EXPECT_THAT(pump(), ElementsAre("E2h"));
}

TEST_F(CourierTest, WhatIsAcknowledgedAndNotYetDeletedWhenTheProcessEndsIsSentAgainAsTheSame) {
  connect(1);
  raise(1, 2);
  pump();
  sut.onPublished(1, 0);
  EXPECT_THAT(sut.acknowledged(), ElementsAre(1));
  outbox.reset(); // before that has been committed
  const auto kept = Outbox::open({.file = folder.file("outbox.db")}).outbox;
  std::vector<std::string> sentAgain;
  Courier next(
      "b2", {},
      [&sentAgain](const Entry& entry, bool isHistorical) -> std::optional<int> {
        sentAgain.push_back(entry.bootId + ":" + std::to_string(entry.from) +
                            (isHistorical ? "h" : ""));
        return static_cast<int>(sentAgain.size());
      },
      [](const Entry&, const std::string&) {});
  next.onConnected(now, 1, kept->nextId());
  next.pump(now, kept.get());
  next.pump(now + seconds(1), kept.get());
  EXPECT_THAT(sentAgain, ElementsAre("b1:1h", "b1:2h"));
  next.onPublished(1, 0);
  next.onPublished(2, 0);
  kept->commit(next.acknowledged(), {}, {});
  EXPECT_EQ(kept->count(), 0U);
}

TEST_F(CourierTest, NobodyListeningIsASuccess) {
  connect(1);
  raise(1, 1);
  pump();
  acknowledgeAll(messages::kMqttNoSubscriber);
  EXPECT_EQ(outbox->count(), 0U);
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(CourierTest, WhatTheBrokerRefusesIsToldOnceAndKept) {
  connect(1);
  raise(1, 2, "Secret");
  pump();
  acknowledgeAll(messages::kMqttNotAuthorized);
  raise(3, 3, "Secret");
  raise(4, 4, "E");
  EXPECT_THAT(pump(), ElementsAre("E4"));
  acknowledgeAll();
  EXPECT_THAT(told, ElementsAre("Secret: not authorized"));
  EXPECT_EQ(outbox->count(), 3U);
  EXPECT_EQ(sut.refusedCount(), 3U);
}

TEST_F(CourierTest, BrokerIsAskedAgainAMinuteLater) {
  connect(1);
  raise(1, 1, "Secret");
  pump();
  acknowledgeAll(messages::kMqttNotAuthorized);
  EXPECT_THAT(pump(), IsEmpty());
  now += seconds(59);
  EXPECT_THAT(pump(), IsEmpty());
  now += seconds(1);
  EXPECT_THAT(pump(), ElementsAre("Secret1"));
  acknowledgeAll();
  EXPECT_EQ(outbox->count(), 0U);
}

TEST_F(CourierTest, WhatCanNeverBeSentHoldsNothingUp) {
  connect(1);
  raise(1, 1, "Huge");
  raise(2, 2);
  EXPECT_THAT(pump(), ElementsAre("E2"));
  EXPECT_THAT(told, ElementsAre("Huge: too large"));
}

TEST_F(CourierTest, WhatIsInNoOutboxIsGivenUpWithTheConnection) {
  connect(1);
  sut.add({0, {"b1", 1, 1, 0, "E", "{"}});
  sut.add({0, {"b1", 2, 2, 0, "E", "{"}});
  EXPECT_THAT(pump(), ElementsAre("E1", "E2"));
  sut.onPublished(1, 0);
  sut.onClosed();
  const auto lost = sut.takeGivenUp();
  ASSERT_EQ(lost.size(), 1U);
  EXPECT_EQ(lost[0].from, 2U);
}

} // namespace

} // namespace gk::fleet
