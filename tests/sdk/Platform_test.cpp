#include "gk/GKError.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"
#include "gk/test/Matchers.h"
#include "gk/test/Platform.h"
#include "zu/log.h"
#include "zu/os.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using gk::test::Kind;
using gk::test::Logged;
using gk::test::NeverRaised;
using gk::test::Platform;
using gk::test::RaisedEvent;
using testing::IsEmpty;
using testing::Not;

/// Counts down, answers an event, and takes its time.
class Lamp : public GK::GKModule {
public:
  explicit Lamp(const boost::shared_ptr<GK::GKBroker>& broker) : GKModule(broker, "Lamp") {
    functionName("run", getName(), "Blinks.");
    bindMethod(&Lamp::run, this);
    functionName("shine", getName(), "Shines for a second.");
    addParam("brightness", "How brightly.");
    setReturn("brightness", "The same.");
    bindMethod(&Lamp::shine, this);
    functionName("onEvent", getName(), "Answers an event.");
    addParam("event", "Its name.");
    addParam("value", "Its value.");
    bindMethod(&Lamp::onEvent, this);
  }

  void init() override {
    fMemory = getParentBroker()->getSpecialisedProxy<GK::GKMemoryProxy>("GKMemory");
    fMemory->subscribeToEvent("Switch", getName(), "onEvent");
  }

  void run() {
    for (int i = 0; i < 3; ++i) {
      fMemory->raiseMicroEvent("Blink", i);
      zu::os::msleep(20);
    }
  }
  float shine(const float& brightness) {
    zu::os::msleep(1000);
    return brightness;
  }
  void onEvent(const std::string& event, const GK::GKValue& value) {
    zu::log::info("lamp", "onEvent") << event << " came";
    fMemory->raiseEvent("Light", value);
  }

private:
  boost::shared_ptr<GK::GKMemoryProxy> fMemory;
};

TEST(TestPlatform, WhatIsDueWhenTheTimeIsUpHasHappened) {
  Platform sut;
  GK::GKModule::createModule<Lamp>(sut.broker());
  sut.broker()->getProxy("Lamp", 0)->postCall("run");
  EXPECT_THAT(sut.events(), NeverRaised("Blink"));
  sut.advance(0.0);
  EXPECT_THAT(sut.events(), RaisedEvent("Blink", 0, 0.0));
  sut.advance(0.019'999);
  EXPECT_EQ(sut.events().size(), 1U);
  sut.advance(0.000'001);
  EXPECT_THAT(sut.events(), RaisedEvent("Blink", 1, 0.02));
  sut.advance(1.0);
  EXPECT_THAT(sut.events(), RaisedEvent("Blink", 2, 0.04));
  EXPECT_DOUBLE_EQ(sut.now(), 1.02);
  EXPECT_EQ(sut.events().front().kind, Kind::MicroEvent);
}

TEST(TestPlatform, EventsComeToSubscribersAndAreKeptWithTheLog) {
  Platform sut;
  GK::GKModule::createModule<Lamp>(sut.broker());
  sut.advance(0.5);
  sut.call("GKMemory.raiseEvent", "Switch", true);
  sut.advance(0.0);
  EXPECT_THAT(sut.events(), RaisedEvent("Light", true, 0.5));
  EXPECT_THAT(sut.events(), Not(RaisedEvent("Light", true, 0.6)));
  EXPECT_THAT(sut.events(), Not(RaisedEvent("Light", false)));
  EXPECT_EQ(sut.events().back().kind, Kind::Event);
  ASSERT_THAT(sut.log(), Logged("Switch came"));
  EXPECT_EQ(sut.log().back().level, zu::log::Info);
  EXPECT_EQ(sut.log().back().category, "lamp");
  EXPECT_EQ(sut.log().back().function, "onEvent");
  EXPECT_DOUBLE_EQ(sut.log().back().time, 0.5);
  sut.clear();
  EXPECT_THAT(sut.events(), IsEmpty());
  EXPECT_THAT(sut.log(), IsEmpty());
}

TEST(TestPlatform, CallsGiveResultsAndLetTimePass) {
  Platform sut;
  GK::GKModule::createModule<Lamp>(sut.broker());
  EXPECT_EQ(sut.call("Lamp.shine", 0.5F), GK::GKValue(0.5F));
  EXPECT_DOUBLE_EQ(sut.now(), 1.0);
  EXPECT_FALSE(sut.call("GKMemory.raiseEvent", "Switch", 1).isValid());
  EXPECT_THROW(sut.call("Lamp.shine", "much"), GK::GKError);
  EXPECT_THROW(sut.call("Lamp.glow"), GK::GKError);
  EXPECT_THROW(sut.call("Lantern.shine", 1.0F), GK::GKError);
  EXPECT_THROW(sut.call("Lamp"), GK::GKError);
}

TEST(TestPlatform, KeysAreReadAsTheyWereSetAndAreAnErrorWhereTheyAreNot) {
  Platform sut;
  sut.set("Settings/Lamp/Brightness", 3);
  EXPECT_EQ(sut.get("Settings/Lamp/Brightness"), GK::GKValue(3));
  try {
    sut.get("Settings/Lamp/Colour");
    FAIL() << "no error";
  } catch (const GK::GKError& error) {
    EXPECT_EQ(error.getDescription(), "there is no key Settings/Lamp/Colour");
  }
}

TEST(TestPlatform, WhatIsNoTimeIsRefused) {
  Platform sut;
  EXPECT_THROW(sut.advance(-0.001), GK::GKError);
  EXPECT_THROW(sut.advance(std::numeric_limits<double>::quiet_NaN()), GK::GKError);
  EXPECT_DOUBLE_EQ(sut.now(), 0.0);
}

TEST(TestPlatform, LoadsModuleLibraries) {
  Platform sut;
  sut.load(GK_TEST_LIBRARIES "/libListener.so");
  EXPECT_EQ(sut.call("Listener.getCount"), GK::GKValue(0));
  sut.shutdown();
  EXPECT_EQ(sut.broker(), nullptr);
}

TEST(TestPlatform, TellsOfLibrariesThatCannotBeLoaded) {
  Platform sut;
  EXPECT_THROW(sut.load("libNowhere.so"), GK::GKError);
  EXPECT_THROW(sut.load(GK_TEST_LIBRARIES "/libNoEntry.so"), GK::GKError);
  EXPECT_THROW(sut.load(GK_TEST_LIBRARIES "/libReturnsSeven.so"), GK::GKError);
  EXPECT_THROW(sut.load(GK_TEST_LIBRARIES "/libThrowsGKError.so"), GK::GKError);
}

TEST(Matchers, TakeAnIntForAFloatOfTheSameValueAndNanForNan) {
  const std::vector<gk::test::Event> events = {
      {1.0, "Float", 2.0F, Kind::Event},
      {1.0, "Nan", std::numeric_limits<float>::quiet_NaN(), Kind::Event},
      {1.0, "Array", GK::GKValue::Array{1, "one"}, Kind::Event}};
  EXPECT_THAT(events, RaisedEvent("Float", 2));
  EXPECT_THAT(events, Not(RaisedEvent("Float", "2")));
  EXPECT_THAT(events, RaisedEvent("Nan", std::numeric_limits<float>::quiet_NaN()));
  EXPECT_THAT(events, RaisedEvent("Array", GK::GKValue::Array{1.0F, "one"}));
  EXPECT_THAT(events, Not(NeverRaised("Array")));
}

TEST(Matchers, TellWhatTheyWantAndWhatThereIs) {
  const std::vector<gk::test::Event> events = {{1.5, "Light", 2.0F, Kind::Event}};
  testing::StringMatchResultListener listener;
  const gk::test::EventsMatcher sut = RaisedEvent("Light", "on");
  EXPECT_FALSE(sut.MatchAndExplain(events, &listener));
  std::ostringstream wanted;
  sut.DescribeTo(&wanted);
  EXPECT_THAT(wanted.str(), testing::HasSubstr("is \"on\""));
  EXPECT_EQ(testing::PrintToString(events), "{ 1.5 s: Light 2.0 }");
}

} // namespace
