#include "gk/GKCaller.h"
#include "gk/GKMemory.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKProxy.h"
#include "support/PlatformFixture.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace GK {
namespace {

using test::errorOf;
using test::IsError;
using test::kModule;
using test::TestPlatform;
using Kind = GKNotice::Kind;

class MemoryTest : public testing::Test {
protected:
  /// Calls a bound method as `caller`.
  GKValue callAs(GKCaller caller, const std::string& method,
                 const std::vector<GKValue>& arguments) {
    const GKCallerScope scope(caller);
    return sut.callMethod(method, arguments);
  }

  TestPlatform platform{TestPlatform::kMemoryOnly};
  GKMemory& sut = platform.memory();
};

TEST_F(MemoryTest, InsertCreatesAndReplaces) {
  sut.insertData("key", 1, kModule);
  EXPECT_EQ(sut.getData("key", kModule), GKValue(1));

  sut.insertData("key", "text", kModule);
  EXPECT_EQ(sut.getData("key", kModule), GKValue("text"));
}

/// Takes a float only for "World/Wind", makes a float of what clients write to "Float", and keeps
/// what it was asked.
class Gate : public GKWriteGate {
public:
  Verdict admit(const GKWrite& write) override {
    asked.push_back(write.name + (write.other.empty() ? "" : " ") + std::string(write.other) +
                    (write.isNew ? " is new" : ""));
    if (write.name == "World/Wind" && write.value->type() != GKValue::Type::Float) {
      return {write.name + " takes a float", std::nullopt};
    }
    if (write.name == "Float" && write.caller == GKCaller::Client) {
      return {{}, GKValue(write.value->toFloat())};
    }
    return {};
  }

  std::vector<std::string> asked;
};

TEST_F(MemoryTest, WhatTheGateRefusesDoesNotHappen) {
  sut.insertData("World/Wind", 1.0F, kModule);
  sut.setGate(std::make_shared<Gate>());
  platform.recorder->clear();
  const auto refuses = [](const char* method) {
    return IsError("GKMemory", method, "World/Wind takes a float");
  };
  EXPECT_THAT(errorOf([this] { sut.insertData("World/Wind", "much", kModule); }),
              refuses("insertData"));
  EXPECT_THAT(errorOf([this] { sut.raiseEvent("World/Wind", 2, kModule); }), refuses("raiseEvent"));
  EXPECT_THAT(errorOf([this] { sut.raiseMicroEvent("World/Wind", 2, kModule); }),
              refuses("raiseMicroEvent"));
  EXPECT_THAT(errorOf([this] {
                callAs(GKCaller::Client, "insertData", {"World/Wind", true});
              }),
              refuses("insertData"));
  EXPECT_EQ(sut.getData("World/Wind", kModule), GKValue(1.0F));
  EXPECT_THAT(platform.recorder->all(), IsEmpty());

  sut.insertData("World/Wind", 2.0F, kModule);
  sut.insertData("Other/Key", "anything", kModule);
  EXPECT_EQ(sut.getData("World/Wind", kModule), GKValue(2.0F));
}

TEST_F(MemoryTest, WhatTheGateMakesOfAValueIsStoredRaisedAndShown) {
  sut.setGate(std::make_shared<Gate>());
  callAs(GKCaller::Client, "insertData", {"Float", 1});
  EXPECT_EQ(sut.getData("Float", kModule), GKValue(1.0F));
  callAs(GKCaller::Client, "raiseEvent", {"Float", 2});
  EXPECT_EQ(sut.getData("Float", kModule), GKValue(2.0F));
  EXPECT_EQ(sut.getEvents()[0].value, GKValue(2.0F));
  sut.insertData("Float", 3, kModule);
  EXPECT_EQ(sut.getData("Float", kModule), GKValue(3));
}

TEST_F(MemoryTest, TheGateIsToldOfWhatIsNewToClients) {
  const auto gate = std::make_shared<Gate>();
  sut.setGate(gate);
  sut.insertData("Key", 1, kModule);
  callAs(GKCaller::Client, "insertData", {"Key", 1});
  callAs(GKCaller::Client, "insertData", {"Fresh", 1});
  // A key is no event, and the other way round it takes a value.
  callAs(GKCaller::Client, "raiseEvent", {"Key", 1});
  callAs(GKCaller::Client, "raiseEvent", {"Key", 1});
  callAs(GKCaller::Client, "declareEvent", {"Declared", "Owner"});
  EXPECT_THAT(gate->asked, ElementsAre("Key", "Key", "Fresh is new", "Key is new", "Key",
                                       "Declared Owner is new"));
}

TEST_F(MemoryTest, ClientsCannotTakeAnEventFromItsOwner) {
  sut.declareEvent("Touched", "Owner", kModule);
  EXPECT_THAT(errorOf([this] {
                callAs(GKCaller::Client, "declareEvent", {"Touched", "Thief"});
              }),
              IsError("GKMemory", "declareEvent", "Touched is declared by Owner"));
  callAs(GKCaller::Client, "declareEvent", {"Touched", "Owner"});
  EXPECT_THAT(sut.getExtractorEvent("Owner"), ElementsAre("Touched"));
}

TEST_F(MemoryTest, UnknownKeyIsAnErrorThatNamesIt) {
  EXPECT_THAT(errorOf([this] { sut.getData("Device/Ghost", kModule); }),
              IsError("GKMemory", "getData", HasSubstr("Device/Ghost")));
  EXPECT_THAT(errorOf([this] { sut.getDataPtr("Device/Ghost", kModule); }),
              IsError("GKMemory", "getDataPtr", HasSubstr("Device/Ghost")));
}

TEST_F(MemoryTest, AskingForAnUnknownKeyDoesNotCreateIt) {
  EXPECT_THROW(sut.getDataPtr("Device/Ghost", kModule), GKError);

  EXPECT_THAT(sut.getDataList(""), IsEmpty());
}

TEST_F(MemoryTest, DeclaringAnEventDoesNotCreateItsKey) {
  sut.declareEvent("Touched", "Owner", kModule);

  EXPECT_THROW(sut.getData("Touched", kModule), GKError);
}

TEST_F(MemoryTest, AddressHoldsTheValueAndWritesReachGetData) {
  sut.insertData("key", 1.5f, kModule);
  void* const address = sut.getDataPtr("key", kModule);
  float value = 0.0f;
  std::memcpy(&value, address, sizeof value);
  EXPECT_EQ(value, 1.5f);

  value = 2.5f;
  std::memcpy(address, &value, sizeof value);

  EXPECT_EQ(sut.getData("key", kModule), GKValue(2.5f));
  EXPECT_EQ(sut.getDataPtr("key", kModule), address);
}

TEST_F(MemoryTest, RaisingAnEventStoresUnderTheSameAddress) {
  sut.insertData("Touched", 0.0f, kModule);
  const void* const address = sut.getDataPtr("Touched", kModule);

  sut.raiseEvent("Touched", 1.0f, kModule);

  EXPECT_EQ(sut.getData("Touched", kModule), GKValue(1.0f));
  EXPECT_EQ(sut.getDataPtr("Touched", kModule), address);
}

TEST_F(MemoryTest, RaisingNeedsNoDeclaration) {
  sut.raiseEvent("Touched", 1, kModule);
  sut.raiseMicroEvent("Sonar", 2, kModule);

  EXPECT_EQ(sut.getData("Touched", kModule), GKValue(1));
  EXPECT_EQ(sut.getData("Sonar", kModule), GKValue(2));
}

TEST_F(MemoryTest, EventsOfAnOwnerComeInTheOrderOfDeclaration) {
  sut.declareEvent("Zeta", "Owner", kModule);
  sut.declareEvent("Other", "Somebody", kModule);
  sut.declareEvent("Alpha", "Owner", kModule);

  EXPECT_THAT(sut.getExtractorEvent("Owner"), ElementsAre("Zeta", "Alpha"));
  EXPECT_THAT(sut.getExtractorEvent("Somebody"), ElementsAre("Other"));
  EXPECT_THAT(sut.getExtractorEvent("Nobody"), IsEmpty());
}

TEST_F(MemoryTest, DeclaringTwiceKeepsOneEntryInItsPlace) {
  sut.declareEvent("Zeta", "Owner", kModule);
  sut.declareEvent("Alpha", "Owner", kModule);
  sut.declareEvent("Zeta", "Owner", kModule);

  EXPECT_THAT(sut.getExtractorEvent("Owner"), ElementsAre("Zeta", "Alpha"));
}

TEST_F(MemoryTest, DeclaringForAnotherOwnerMovesTheEvent) {
  sut.declareEvent("Zeta", "Owner", kModule);
  sut.declareEvent("Zeta", "Heir", kModule);

  EXPECT_THAT(sut.getExtractorEvent("Owner"), IsEmpty());
  EXPECT_THAT(sut.getExtractorEvent("Heir"), ElementsAre("Zeta"));
}

TEST_F(MemoryTest, EventsKnowCountTimeAndLastValue) {
  sut.declareEvent("Quiet", "Owner", kModule);
  sut.raiseEvent("Loud", 1, kModule);
  platform.sleep(5);
  sut.raiseMicroEvent("Loud", 2, kModule);
  sut.insertData("key", 1, kModule);

  const std::vector<GKEventInfo> events = sut.getEvents();

  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].name, "Loud");
  EXPECT_EQ(events[0].owner, "");
  EXPECT_EQ(events[0].count, 2u);
  EXPECT_EQ(events[0].value, GKValue(2));
  EXPECT_EQ(events[0].time, 5000);
  EXPECT_EQ(events[1].name, "Quiet");
  EXPECT_EQ(events[1].owner, "Owner");
  EXPECT_EQ(events[1].count, 0u);
  EXPECT_FALSE(events[1].value.isValid());
  EXPECT_EQ(events[1].time, 0);
}

TEST_F(MemoryTest, DataListContainsThePattern) {
  sut.insertData("Device/B", 1, kModule);
  sut.insertData("Device/A", 1, kModule);
  sut.insertData("Motion", 1, kModule);

  EXPECT_THAT(sut.getDataList("Device"), ElementsAre("Device/A", "Device/B"));
  EXPECT_THAT(sut.getDataList("/B"), ElementsAre("Device/B"));
  EXPECT_THAT(sut.getDataList(""), ElementsAre("Device/A", "Device/B", "Motion"));
  EXPECT_THAT(sut.getDataList("Ghost"), IsEmpty());
}

TEST_F(MemoryTest, ObserversSeeEverythingInOrderWithItsTime) {
  sut.declareEvent("Touched", "Owner", kModule);
  platform.sleep(10);
  sut.insertData("key", 3, kModule);
  sut.raiseEvent("Touched", 1.5f, kModule);
  platform.sleep(10);
  sut.raiseMicroEvent("Sonar", "far", kModule);

  const std::vector<GKNotice> notices = platform.recorder->all();

  ASSERT_EQ(notices.size(), 4u);
  EXPECT_EQ(notices[0].kind, Kind::Declare);
  EXPECT_EQ(notices[0].name, "Touched");
  EXPECT_EQ(notices[0].owner, "Owner");
  EXPECT_EQ(notices[0].time, 0);
  EXPECT_EQ(notices[1].kind, Kind::Insert);
  EXPECT_EQ(notices[1].name, "key");
  EXPECT_EQ(notices[1].value, GKValue(3));
  EXPECT_EQ(notices[1].time, 10000);
  EXPECT_EQ(notices[2].kind, Kind::Event);
  EXPECT_EQ(notices[2].name, "Touched");
  EXPECT_EQ(notices[2].value, GKValue(1.5f));
  EXPECT_EQ(notices[2].time, 10000);
  EXPECT_EQ(notices[3].kind, Kind::MicroEvent);
  EXPECT_EQ(notices[3].name, "Sonar");
  EXPECT_EQ(notices[3].value, GKValue("far"));
  EXPECT_EQ(notices[3].time, 20000);
}

TEST_F(MemoryTest, EveryObserverIsToldUntilItIsRemoved) {
  const auto second = boost::make_shared<test::NoticeRecorder>();
  GKObserverList::instance().add(second);
  sut.raiseEvent("Touched", 1, kModule);
  GKObserverList::instance().remove(second);
  sut.raiseEvent("Touched", 2, kModule);

  EXPECT_THAT(second->raised("Touched"), ElementsAre(GKValue(1)));
  EXPECT_THAT(platform.recorder->raised("Touched"), ElementsAre(GKValue(1), GKValue(2)));
}

TEST_F(MemoryTest, ObserverFindsTheValueStoredAlready) {
  struct Reader : GKObserver {
    explicit Reader(GKMemory& memory) : fMemory(memory) {}
    void onNotice(const GKNotice& notice) override {
      seen.push_back(fMemory.getData(notice.name, GKCaller::Platform));
    }
    GKMemory& fMemory;
    std::vector<GKValue> seen;
  };
  const auto reader = boost::make_shared<Reader>(sut);
  GKObserverList::instance().add(reader);

  sut.raiseEvent("Touched", 1, kModule);
  sut.insertData("key", 2, kModule);
  GKObserverList::instance().remove(reader);

  EXPECT_THAT(reader->seen, ElementsAre(GKValue(1), GKValue(2)));
}

TEST_F(MemoryTest, InsertTellsOnWhoseBehalf) {
  for (const GKCaller caller : {GKCaller::Module, GKCaller::Client, GKCaller::Platform}) {
    sut.insertData("key", 1, caller);
    callAs(caller, "insertData", {"key", 1});
  }

  std::vector<GKCaller> callers;
  for (const GKNotice& notice : platform.recorder->ofKind(Kind::Insert)) {
    callers.push_back(notice.caller);
  }
  EXPECT_THAT(callers, ElementsAre(GKCaller::Module, GKCaller::Module, GKCaller::Client,
                                   GKCaller::Client, GKCaller::Platform, GKCaller::Platform));
}

TEST_F(MemoryTest, ProxiesCallOnBehalfOfAModule) {
  // A client's call has entered a module, which now calls on.
  const GKCallerScope scope(GKCaller::Client);
  platform.broker()->getProxy("GKMemory", 0)->callVoid("insertData", "key", 1);
  platform.broker()->getSpecialisedProxy<GKMemoryProxy>("GKMemory")->insertData("key", 2);

  for (const GKNotice& notice : platform.recorder->ofKind(Kind::Insert)) {
    EXPECT_EQ(notice.caller, GKCaller::Module);
  }
  EXPECT_EQ(platform.recorder->ofKind(Kind::Insert).size(), 2u);
  EXPECT_EQ(GKCallerScope::current(), GKCaller::Client);
}

TEST_F(MemoryTest, BoundFormsDoTheSame) {
  sut.callMethod("insertData", {"key", 1.5f});
  sut.callMethod("declareEvent", {"Touched", "Owner"});
  sut.callMethod("raiseEvent", {"Touched", 1});
  sut.callMethod("raiseMicroEvent", {"Sonar", GKValue(GKValue::Array{1, 2})});

  EXPECT_EQ(sut.callMethod("getData", {"key"}), GKValue(1.5f));
  EXPECT_EQ(sut.callMethod("getData", {"Sonar"}), GKValue(GKValue::Array{1, 2}));
  EXPECT_EQ(sut.callMethod("getExtractorEvent", {"Owner"}), GKValue(GKValue::Array{"Touched"}));
  EXPECT_EQ(sut.callMethod("getDataList", {"ey"}), GKValue(GKValue::Array{"key"}));
  EXPECT_EQ(sut.callMethod("getEventList", {}), GKValue(GKValue::Array{"Sonar", "Touched"}));
  EXPECT_THAT(errorOf([this] { sut.callMethod("getData", {"Ghost"}); }),
              IsError("GKMemory", "getData", HasSubstr("Ghost")));
}

TEST_F(MemoryTest, SpecialisedProxyTellsWhatThereIs) {
  GKMemoryProxy proxy(platform.broker()->getProxy("GKMemory", 0));
  proxy.insertData("here/one", 1);
  proxy.insertData("there", 2);
  proxy.declareEvent("B", "Owner");
  proxy.declareEvent("A", "Owner");

  EXPECT_TRUE(proxy.hasKey("there"));
  EXPECT_FALSE(proxy.hasKey("B"));
  EXPECT_THAT(proxy.getDataList("here"), ElementsAre("here/one", "there"));
  EXPECT_THAT(proxy.getExtractorEvent("Owner"), ElementsAre("B", "A"));
}

TEST_F(MemoryTest, SpecialisedProxyDoesTheSame) {
  GKMemoryProxy proxy(platform.broker()->getProxy("GKMemory", 0));
  proxy.declareEvent("Touched", "Owner");
  proxy.raiseEvent("Touched", 1);
  proxy.raiseMicroEvent("Sonar", 2);
  proxy.insertData("key", 3.5f);

  EXPECT_EQ(proxy.getData("key"), GKValue(3.5f));
  EXPECT_EQ(proxy.getDataPtr("key"), sut.getDataPtr("key", kModule));
  EXPECT_THAT(sut.getExtractorEvent("Owner"), ElementsAre("Touched"));
  EXPECT_THAT(platform.recorder->raised("Sonar"), ElementsAre(GKValue(2)));
}

} // namespace
} // namespace GK
