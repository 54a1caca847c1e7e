#include "devices/WriteGate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace gk::devices;
using GK::GKCaller;
using GK::GKValue;
using GK::GKWrite;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Kind = GKWrite::Kind;

const std::string kTouch = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value";
const std::string kStatus = "Device/SubDeviceList/Battery/Charge/Sensor/Status";

class WriteGateTest : public testing::Test {
protected:
  static GK::GKWriteGate::Verdict ask(WriteGate& gate, const std::string& name,
                                      const GKValue& value, Kind kind = Kind::Data,
                                      GKCaller caller = GKCaller::Client, bool isNew = false) {
    return gate.admit({kind, caller, name, &value, {}, isNew});
  }
  std::string refusal(const std::string& name, const GKValue& value, Kind kind = Kind::Data) {
    return ask(sut, name, value, kind).refusal;
  }
  /// What is stored of a value that is admitted.
  GKValue stored(const std::string& name, const GKValue& value, Kind kind = Kind::Data) {
    const auto verdict = ask(sut, name, value, kind);
    EXPECT_THAT(verdict.refusal, IsEmpty());
    return verdict.value.value_or(value);
  }
  /// What is new, by a client.
  static std::string made(WriteGate& gate, const std::string& name, Kind kind) {
    return ask(gate, name, 1, kind, GKCaller::Client, true).refusal;
  }

  WriteGate sut;
};

} // namespace

TEST_F(WriteGateTest, DeviceKeysKeepTheTypeOfTheTable) {
  for (const Kind kind : {Kind::Data, Kind::Event, Kind::Order}) {
    EXPECT_EQ(stored(kTouch, 1, kind), GKValue(1.0F));
    EXPECT_EQ(stored(kTouch, 0.5F, kind), GKValue(0.5F));
    EXPECT_EQ(stored(kStatus, 34.0F, kind), GKValue(34));
    EXPECT_EQ(refusal(kTouch, "text", kind), kTouch + ": takes a float, not \"text\"");
    EXPECT_EQ(refusal(kTouch, true, kind), kTouch + ": takes a float, not true");
    EXPECT_EQ(refusal(kTouch, GKValue(), kind), kTouch + ": takes a float, not null");
    EXPECT_EQ(refusal(kStatus, 34.5F, kind), kStatus + ": takes an int of 32 bits, not 34.5");
  }
}

TEST_F(WriteGateTest, OtherKeysTakeAnything) {
  for (const GKValue& value :
       {GKValue(1), GKValue("text"), GKValue(true), GKValue(), GKValue(GKValue::Array{1, "x"})}) {
    EXPECT_EQ(stored("Mine", value), value);
  }
}

TEST_F(WriteGateTest, ModulesDoWhatTheyLike) {
  const std::string name(100'000, 'n');
  for (const Kind kind : {Kind::Data, Kind::Event}) {
    const auto verdict = ask(sut, kTouch, std::string(100'000, 'v'), kind, GKCaller::Module);
    EXPECT_THAT(verdict.refusal, IsEmpty());
    EXPECT_FALSE(verdict.value.has_value());
    EXPECT_THAT(ask(sut, name, 1, kind, GKCaller::Module).refusal, IsEmpty());
  }
}

TEST_F(WriteGateTest, NamesHave1To256Bytes) {
  EXPECT_THAT(refusal("", 1), HasSubstr("a name has 1 to 256 bytes, not 0"));
  EXPECT_THAT(refusal(std::string(256, 'n'), 1), IsEmpty());
  EXPECT_THAT(refusal(std::string(257, 'n'), 1),
              AllOf(HasSubstr("nnn\"..."), HasSubstr("a name has 1 to 256 bytes, not 257")));
  const std::string owner(257, 'o');
  EXPECT_THAT(
      sut.admit({Kind::Declaration, GKCaller::Client, "Event", nullptr, owner, true}).refusal,
      HasSubstr("not 257"));
}

TEST_F(WriteGateTest, ValuesHaveALimitWhateverTheyAreMadeOf) {
  constexpr std::size_t kMost = 64U << 10U;
  EXPECT_THAT(refusal("Mine", std::string(kMost, 'v')), IsEmpty());
  EXPECT_EQ(refusal("Mine", std::string(kMost + 1, 'v')),
            "Mine: a value has at most 65536 bytes, not 65537");
  // Four bytes for each number, and for the array itself.
  EXPECT_THAT(refusal("Mine", GKValue::Array(kMost / 4 - 1, 1)), IsEmpty());
  EXPECT_THAT(refusal("Mine", GKValue::Array(kMost / 4, 1)), HasSubstr("at most 65536 bytes"));
  EXPECT_THAT(refusal("Mine", GKValue::Array(2, std::string(40'000, 'v'))),
              HasSubstr("at most 65536 bytes"));
}

TEST_F(WriteGateTest, KeysAndEventsOfClientsAreCountedOnce) {
  ClientLimits limits;
  limits.keys = 2;
  limits.events = 1;
  WriteGate gate(limits);
  EXPECT_THAT(made(gate, "a", Kind::Data), IsEmpty());
  EXPECT_THAT(made(gate, "a", Kind::Data), IsEmpty());
  EXPECT_THAT(made(gate, "b", Kind::Order), IsEmpty());
  EXPECT_EQ(made(gate, "c", Kind::Resource),
            "c: clients have made 2 keys, and may make no more (--limit keys=N)");
  EXPECT_THAT(made(gate, "a", Kind::Event), IsEmpty());
  EXPECT_EQ(gate.admit({Kind::Declaration, GKCaller::Client, "d", nullptr, "Owner", true}).refusal,
            "d: clients have made 1 events, and may make no more (--limit events=N)");
  // What is there already is no longer counted.
  EXPECT_THAT(ask(gate, "c", 1).refusal, IsEmpty());
}

TEST_F(WriteGateTest, EventsAreHandedToModulesOnly) {
  const auto subscribe = [this](const char* module) {
    return sut.admit({Kind::Subscription, GKCaller::Client, "Event", nullptr, module, true})
        .refusal;
  };
  for (const char* service : {"GKMemory", "DCM", "GKResourceManager"}) {
    EXPECT_THAT(subscribe(service), HasSubstr("is a service of the host"));
  }
  EXPECT_THAT(subscribe("GKSonar"), IsEmpty());
}

TEST_F(WriteGateTest, TheWorldDecidesAboutItsKeysWhoeverWritesThem) {
  WriteGate gate({}, [](const std::string& key, const GKValue& value) {
    return value == GKValue(1.0F) ? std::string() : key + " is no such thing";
  });
  const std::string key = "Simulation/Push/X";
  EXPECT_THAT(ask(gate, key, 1).refusal, IsEmpty());
  EXPECT_EQ(ask(gate, key, 2).refusal, key + " is no such thing");
  EXPECT_EQ(ask(gate, key, 2, Kind::Event, GKCaller::Module).refusal, key + " is no such thing");
  EXPECT_THAT(ask(gate, "Motion/IsStand", 2.0F).refusal, IsEmpty());
}

TEST(ClientLimits, AreReadByName) {
  ClientLimits sut;
  EXPECT_THAT(readLimit("keys=5", sut), IsEmpty());
  EXPECT_THAT(readLimit("answer=1", sut), IsEmpty());
  EXPECT_EQ(sut.keys, 5U);
  EXPECT_EQ(sut.answer, 1U);
  EXPECT_EQ(sut.names, 256U);
  EXPECT_EQ(readLimit("kyes=5", sut), "kyes=5: there is no such limit, only names, values, keys, "
                                      "events, answer, as in keys=20000");
  for (const char* text : {"keys=0", "keys=", "keys", "keys=-1", "keys=1x", "keys=1.5"}) {
    EXPECT_EQ(readLimit(text, sut), std::string(text) + ": a limit is a number from 1 on");
  }
  EXPECT_EQ(sut.keys, 5U);
}

TEST(ClientLimits, AreKeptAsText) {
  ClientLimits limits;
  limits.events = 7;
  const std::string text = limitsText(limits);
  EXPECT_EQ(text, "names=256,values=65536,keys=10000,events=7,answer=16777216");
  EXPECT_EQ(limitsText(limitsOf(text)), text);
  EXPECT_EQ(limitsText(limitsOf("")), limitsText({}));
}
