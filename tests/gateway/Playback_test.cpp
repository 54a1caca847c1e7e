#include "gateway/past/Playback.h"
#include "ServedHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace gk::gateway {
namespace {

using test::ask;
using test::call;
using test::ServedHost;
using test::Socket;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr GK::GKMicros kOneSecond = 1'000'000;

/// A run of ten seconds that is where it is told to be. Gateway's thread alone.
class FakePlayback final : public Playback {
public:
  PlaybackState state() const override { return fState; }
  Facts facts() const override { return {"fake.mcap", 0, true}; }
  void play() override { fState.isPlaying = true; }
  void pause() override { fState.isPlaying = false; }
  void seek(GK::GKMicros time) override {
    fState.time = std::min(std::max(time, fState.begin), fState.end);
  }
  void setSpeed(double speed) override { fState.speed = speed; }
  void step(Step what, int count) override { steps += what == Step::Event ? count : 100 * count; }
  void setLoop(std::optional<std::pair<GK::GKMicros, GK::GKMicros>> loop) override {
    fState.loop = loop;
  }
  std::string pastJson(PastRange range, std::string_view) override {
    return range.step == 0 ? R"({"events":[]})" : "{}";
  }
  void setListener(std::function<void(Change)> tell) override { fTell = std::move(tell); }

  /// As the player does it once it has got there.
  void tell(Change change) { fTell(change); }
  void setEnded() {
    fState.time = fState.end;
    fState.isPlaying = false;
  }

  int steps = 0;

private:
  PlaybackState fState{0, 0, 10 * kOneSecond, 1, true, std::nullopt};
  std::function<void(Change)> fTell;
};

template <class Number> std::string bytesOf(Number number) {
  std::string bytes;
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    bytes += static_cast<char>((number >> (8 * i)) & 0xFF);
  }
  return bytes;
}

std::string request(bool isPlay, float speed, std::optional<std::uint64_t> seek,
                    const std::string& id) {
  return std::string(1, 3) + std::string(1, isPlay ? '\0' : '\1') +
         bytesOf(std::bit_cast<std::uint32_t>(speed)) + std::string(1, seek ? '\1' : '\0') +
         bytesOf(seek.value_or(0)) + bytesOf(static_cast<std::uint32_t>(id.size())) + id;
}

std::string reply(char status, std::uint64_t time, float speed, bool didSeek,
                  const std::string& id) {
  return std::string(1, 5) + std::string(1, status) + bytesOf(time) +
         bytesOf(std::bit_cast<std::uint32_t>(speed)) + std::string(1, didSeek ? '\1' : '\0') +
         bytesOf(static_cast<std::uint32_t>(id.size())) + id;
}

class PlaybackTest : public testing::Test {
protected:
  static GatewayOptions options(const std::shared_ptr<FakePlayback>& playback) {
    GatewayOptions made;
    made.playback = playback;
    made.past.length = 0;
    return made;
  }
  /// Nanoseconds of a time of the run on the clock of messages.
  static std::uint64_t timeOf(const std::string& told) {
    std::uint64_t time = 0;
    for (std::size_t i = 0; i < sizeof time; ++i) {
      time |= static_cast<std::uint64_t>(static_cast<unsigned char>(told[2 + i])) << (8 * i);
    }
    return time;
  }

  std::shared_ptr<FakePlayback> playback = std::make_shared<FakePlayback>();
  ServedHost sut{options(playback)};
};

TEST_F(PlaybackTest, MethodsAnswerWithWhereItStands) {
  EXPECT_EQ(call(sut, "Playback.seek", "[2.5]"),
            R"({"jsonrpc":"2.0","id":1,"result":{"time":2.5,"begin":0,"end":10,"speed":1,)"
            R"("playing":true,"loop":null}})");
  EXPECT_THAT(call(sut, "Playback.pause", "[]"), HasSubstr(R"("playing":false)"));
  EXPECT_THAT(call(sut, "Playback.speed", R"({"X":0.5})"), HasSubstr(R"("speed":0.5)"));
  EXPECT_THAT(call(sut, "Playback.loop", "[1,2]"), HasSubstr(R"("loop":[1,2])"));
  EXPECT_THAT(call(sut, "Playback.loop", "[null]"), HasSubstr(R"("loop":null)"));
  call(sut, "Playback.step", R"(["event",-2])");
  call(sut, "Playback.step", R"(["tick",3])");
  EXPECT_EQ(playback->steps, 298);
}

TEST_F(PlaybackTest, WhatCannotBeDoneLeavesItWhereItIs) {
  EXPECT_THAT(call(sut, "Playback.seek", R"(["x"])"), HasSubstr("-32602"));
  EXPECT_THAT(call(sut, "Playback.seek", "[]"), HasSubstr("takes (T)"));
  EXPECT_THAT(call(sut, "Playback.loop", "[2,1]"), HasSubstr("-32602"));
  EXPECT_THAT(call(sut, "Playback.step", R"(["event",1.5])"), HasSubstr("-32602"));
  EXPECT_THAT(call(sut, "Playback.sek", "[1]"), HasSubstr("Playback.seek"));
  EXPECT_EQ(playback->state().time, 0);
}

TEST_F(PlaybackTest, EverythingElseIsRefusedWithTheReason) {
  EXPECT_THAT(call(sut, "Probe.echo", "[1]"),
              AllOf(HasSubstr("-32000"), HasSubstr("a recording is played")));
  for (const auto& answer : {ask(sut, "PUT", "/api/v1/memory/Simulation/Push/X", "1"),
                             ask(sut, "POST", "/api/v1/past/keep", "{}")}) {
    EXPECT_EQ(answer.status, 409);
    EXPECT_EQ(answer.body, R"({"error":{"message":"a recording is played"}})");
  }
  EXPECT_EQ(ask(sut, "GET", "/api/v1/past?step=0").body, R"({"events":[]})");
  EXPECT_THAT(ask(sut, "GET", "/api/v1/host").body, HasSubstr(R"("playback":{"time":0,)"));
}

TEST_F(PlaybackTest, ViewersAreGreetedWithItsSpanAndWithoutServices) {
  Socket viewer(sut.port());
  viewer.upgrade("/", sut.name());
  EXPECT_THAT(viewer.readText("serverInfo"),
              AllOf(HasSubstr("playbackControl"), HasSubstr("dataStartTime"),
                    HasSubstr("dataEndTime"), Not(HasSubstr(R"("services")"))));
}

TEST_F(PlaybackTest, AViewersRequestIsAnsweredWithItsId) {
  Socket viewer(sut.port());
  viewer.upgrade("/", sut.name());
  viewer.readText("advertise");
  viewer.sendFrame(2, request(false, 2, 3'000'000'000, "mine"));
  const std::string told = viewer.readBinary(5);
  EXPECT_EQ(told, reply(1, timeOf(told), 2, true, "mine"));
  EXPECT_EQ(playback->state().time, 3 * kOneSecond);
  // No speed is as fast as possible by mistake, and nothing lies beyond the end.
  viewer.sendFrame(2, request(true, 0, 99'000'000'000, "again"));
  const std::string beyond = viewer.readBinary(5);
  EXPECT_EQ(beyond, reply(0, timeOf(told) + 7'000'000'000, 0.001F, true, "again"));
  playback->setEnded();
  playback->tell({});
  EXPECT_EQ(viewer.readBinary(5), reply(3, timeOf(beyond), 0.001F, false, ""));
}

TEST_F(PlaybackTest, ARequestThatIsNoneIsRefused) {
  Socket viewer(sut.port());
  viewer.upgrade("/", sut.name());
  viewer.sendFrame(2, std::string("\x03\x07", 2));
  EXPECT_THAT(viewer.readText(R"("op":"status")"), HasSubstr(R"("level":2)"));
  viewer.sendFrame(2, request(true, 1, std::nullopt, "id").substr(0, 12));
  EXPECT_THAT(viewer.readText(R"("op":"status")"), HasSubstr("too short"));
}

TEST_F(PlaybackTest, WhenTimeGoesBackOnlyWhoDoesNotKnowOfPlayingBeginsAnew) {
  Socket plain(sut.port());
  plain.upgrade("/", sut.name());
  const std::string greeting = plain.readText("serverInfo");
  Socket page(sut.port());
  page.upgrade("/", sut.name());
  const std::string channels = page.readText("/playback");
  const std::size_t topic = channels.find(R"("topic":"/playback")");
  const std::size_t begin = channels.rfind(R"("id":)", topic) + 5;
  const std::string id = channels.substr(begin, channels.find(',', begin) - begin);
  page.sendText(R"({"op":"subscribe","subscriptions":[{"id":1,"channelId":)" + id + "}]}");
  EXPECT_THAT(page.readBinary(1), HasSubstr(R"("file":"fake.mcap")"));
  playback->seek(kOneSecond);
  playback->tell({true, true});
  // All clients are told, whoever has asked.
  EXPECT_THAT(page.readBinary(1),
              AllOf(HasSubstr(R"({"time":1,)"), HasSubstr(R"("didSeek":true)")));
  const std::string again = plain.readText("serverInfo");
  EXPECT_NE(again, greeting);
  EXPECT_THAT(again, HasSubstr("sessionId"));
}

TEST(Playback, ARobotIsNotPlayed) {
  ServedHost sut;
  EXPECT_THAT(call(sut, "Playback.state", "[]"), HasSubstr("there is no module Playback"));
  Socket viewer(sut.port());
  viewer.upgrade("/", sut.name());
  viewer.sendFrame(2, request(true, 1, std::nullopt, "id"));
  EXPECT_THAT(viewer.readText(R"("op":"status")"), HasSubstr("not offered"));
}

} // namespace
} // namespace gk::gateway
