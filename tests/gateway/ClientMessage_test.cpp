#include "gateway/stream/ClientMessage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace gk::gateway {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

template <class Message> Message textAs(std::string_view text) {
  return std::get<Message>(parseClientText(text));
}

std::string complaintAbout(std::string_view text) {
  try {
    parseClientText(text);
  } catch (const messages::FormatError& error) {
    return error.what();
  }
  ADD_FAILURE() << "no error for " << text;
  return {};
}

TEST(ClientMessage, SubscriptionsComeWithTheirChannels) {
  EXPECT_THAT(
      textAs<SubscribeMessage>(
          R"({"op":"subscribe","subscriptions":[{"id":0,"channelId":3},{"id":4294967295,"channelId":9007199254740991}]})")
          .subscriptions,
      ElementsAre(Pair(0U, 3U), Pair(4294967295U, 9007199254740991U)));
  EXPECT_THAT(
      textAs<UnsubscribeMessage>(R"({"op":"unsubscribe","subscriptionIds":[1,2]})").subscriptions,
      ElementsAre(1U, 2U));
}

TEST(ClientMessage, ParametersAreAskedForByName) {
  const auto get =
      textAs<GetParametersMessage>(R"({"op":"getParameters","parameterNames":["a","b"],"id":"q"})");
  EXPECT_THAT(get.names, ElementsAre("a", "b"));
  EXPECT_EQ(get.id, "q");
  EXPECT_FALSE(
      textAs<GetParametersMessage>(R"({"op":"getParameters","parameterNames":[]})").id.has_value());
  EXPECT_TRUE(
      textAs<WatchParametersMessage>(R"({"op":"subscribeParameterUpdates","parameterNames":["a"]})")
          .isOn);
  EXPECT_FALSE(textAs<WatchParametersMessage>(
                   R"({"op":"unsubscribeParameterUpdates","parameterNames":["a"]})")
                   .isOn);
}

TEST(ClientMessage, ParametersAreSetWithValueAndType) {
  const auto set = textAs<SetParametersMessage>(
      R"({"op":"setParameters","parameters":[{"name":"a","value":1,"type":"float64"},{"name":"b"}]})");
  ASSERT_EQ(set.parameters.size(), 2U);
  EXPECT_EQ(set.parameters[0].name, "a");
  EXPECT_EQ(set.parameters[0].type, "float64");
  EXPECT_TRUE(set.parameters[0].value->is_int64());
  EXPECT_FALSE(set.parameters[1].value.has_value());
}

TEST(ClientMessage, AServiceCallIsReadByteByByte) {
  const std::string frame("\x02\x05\x00\x00\x00\xff\xff\x00\x80\x04\x00\x00\x00json{}", 19);
  const auto call = std::get<ServiceCallMessage>(parseClientBinary(frame));
  EXPECT_EQ(call.service, 5U);
  EXPECT_EQ(call.call, 0x8000FFFFU);
  EXPECT_EQ(call.encoding, "json");
  EXPECT_EQ(call.payload, "{}");
}

TEST(ClientMessage, EveryShorterServiceCallIsRefused) {
  const std::string frame("\x02\x05\x00\x00\x00\xff\xff\x00\x80\x04\x00\x00\x00json", 17);
  EXPECT_NO_THROW(parseClientBinary(frame));
  for (std::size_t length = 0; length < frame.size(); ++length) {
    EXPECT_THROW(parseClientBinary(std::string_view(frame).substr(0, length)),
                 messages::FormatError)
        << length;
  }
}

TEST(ClientMessage, EveryShorterPlaybackRequestIsRefused) {
  const std::string frame("\x03\x01\x00\x00\x00\x40\x01\x00\x5e\xd0\xb2\x00\x00\x00\x00"
                          "\x02\x00\x00\x00id",
                          21);
  const auto message = std::get<PlaybackControlMessage>(parseClientBinary(frame));
  EXPECT_FALSE(message.isPlay);
  EXPECT_EQ(message.speed, 2.0F);
  EXPECT_EQ(message.seek, 3'000'000'000U);
  EXPECT_EQ(message.requestId, "id");
  for (std::size_t length = 0; length < frame.size(); ++length) {
    EXPECT_THROW(parseClientBinary(std::string_view(frame).substr(0, length)),
                 messages::FormatError)
        << length;
  }
}

TEST(ClientMessage, OtherBinaryOperationsAreNotOffered) {
  for (const char opcode : {'\x00', '\x01', '\x04', '\xff'}) {
    std::string frame(21, '\0');
    frame[0] = opcode;
    EXPECT_THROW(parseClientBinary(frame), messages::FormatError);
  }
}

TEST(ClientMessage, OtherOperationsAreNotOffered) {
  EXPECT_THAT(complaintAbout(R"({"op":"advertise","channels":[]})"), HasSubstr("not offered"));
  EXPECT_THAT(complaintAbout(R"({"op":"fetchAsset","uri":"file:///etc/passwd","requestId":1})"),
              HasSubstr("not offered"));
}

TEST(ClientMessage, WrongShapesAreNamed) {
  EXPECT_THAT(complaintAbout("5"), HasSubstr("object"));
  EXPECT_THAT(complaintAbout("{}"), HasSubstr("\"op\" is missing"));
  EXPECT_THAT(complaintAbout(R"({"op":"subscribe"})"), HasSubstr("\"subscriptions\" is missing"));
  EXPECT_THAT(complaintAbout(R"({"op":"subscribe","subscriptions":[5]})"), HasSubstr("object"));
  EXPECT_THAT(complaintAbout(R"({"op":"subscribe","subscriptions":[{"id":-1,"channelId":1}]})"),
              HasSubstr("id must be an integer"));
  EXPECT_THAT(
      complaintAbout(R"({"op":"subscribe","subscriptions":[{"id":4294967296,"channelId":1}]})"),
      HasSubstr("id must be an integer"));
  EXPECT_THAT(complaintAbout(
                  R"({"op":"subscribe","subscriptions":[{"id":1,"channelId":9007199254740992}]})"),
              HasSubstr("channelId must be an integer"));
  EXPECT_THAT(complaintAbout(R"({"op":"getParameters","parameterNames":[1]})"),
              HasSubstr("must be a string"));
}

TEST(ClientMessage, ListsAreLimited) {
  const auto list = [](std::size_t count) {
    std::string text = R"({"op":"unsubscribe","subscriptionIds":[)";
    for (std::size_t i = 0; i < count; ++i) {
      text += i == 0 ? "1" : ",1";
    }
    return text + "]}";
  };
  EXPECT_NO_THROW(parseClientText(list(kMaxListEntries)));
  EXPECT_THAT(complaintAbout(list(kMaxListEntries + 1)), HasSubstr("more than 4096"));
}

} // namespace
} // namespace gk::gateway
