#include "gk/DCMProxy.h"
#include "gk/GKCaller.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKOperationHook.h"
#include "gk/GKProxy.h"
#include "gk/GKResourceManager.h"
#include "support/PlatformFixture.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>

using testing::IsEmpty;

namespace GK {
namespace {

using test::errorOf;
using test::IsError;
using test::TestPlatform;

GKValue goodOrder() {
  return GKValue::Array{"US/Actuator/Value", "Merge",
                        GKValue(GKValue::Array{GKValue(GKValue::Array{1.0f, 100})})};
}

/// Uses of each operation as a module does them, and as a client does them.
class OperationHookTest : public testing::Test {
protected:
  struct Use {
    std::string key;
    std::function<void()> byModule;
    std::function<void()> byClient;
  };

  OperationHookTest() {
    platform.set("key", 1);
    const auto call = [this](const char* module, const char* method,
                             std::vector<GKValue> arguments) {
      return [this, module, method, arguments = std::move(arguments)] {
        const GKCallerScope scope(GKCaller::Client);
        platform.broker()->findModule(module)->callMethod(method, arguments);
      };
    };
    uses = {
        {GKOperation::RaiseEvent,
         {"Event", [this] { memory.raiseEvent("Event", 2); },
          call("GKMemory", "raiseEvent", {"Event", 2})}},
        {GKOperation::RaiseMicroEvent,
         {"Micro", [this] { memory.raiseMicroEvent("Micro", 2); },
          call("GKMemory", "raiseMicroEvent", {"Micro", 2})}},
        {GKOperation::InsertData,
         {"new", [this] { memory.insertData("new", 2); },
          call("GKMemory", "insertData", {"new", 2})}},
        {GKOperation::DeclareEvent,
         {"Declared", [this] { memory.declareEvent("Declared", "Owner"); },
          call("GKMemory", "declareEvent", {"Declared", "Owner"})}},
        {GKOperation::GetData,
         {"key", [this] { memory.getData("key"); }, call("GKMemory", "getData", {"key"})}},
        {GKOperation::GetDataPtr,
         {"key", [this] { memory.getDataPtr("key"); },
          [this] { platform.memory().getDataPtr("key", GKCaller::Client); }}},
        {GKOperation::GetProxy,
         {"DCM", [this] { platform.broker()->getProxy("DCM", 0); },
          [this] { platform.broker()->findModule("DCM"); }}},
        {GKOperation::DcmSet,
         {"", [this] { dcm.set(goodOrder()); }, call("DCM", "set", {goodOrder()})}},
        {GKOperation::EnableStateResource,
         {"", [this] { resources->callVoid("enableStateResource", "Standing", true); },
          call("GKResourceManager", "enableStateResource", {"Standing", true})}},
    };
  }

  TestPlatform platform;
  GKMemoryProxy memory{platform.broker()->getProxy("GKMemory", 0)};
  DCMProxy dcm{platform.broker()};
  boost::shared_ptr<GKProxy> resources = platform.broker()->getProxy("GKResourceManager", 0);
  std::map<GKOperation, Use> uses;
};

TEST_F(OperationHookTest, EveryOperationOfAModuleIsAskedForOnceWithItsKey) {
  for (const auto& [operation, use] : uses) {
    SCOPED_TRACE(static_cast<int>(operation));
    const int before = platform.faults->uses(operation, use.key);
    use.byModule();
    EXPECT_EQ(platform.faults->uses(operation, use.key), before + 1);
  }
}

TEST_F(OperationHookTest, NothingThatClientsDoIsAskedFor) {
  for (const auto& [operation, use] : uses) {
    SCOPED_TRACE(static_cast<int>(operation));
    const int before = platform.faults->uses(operation, use.key);
    use.byClient();
    EXPECT_EQ(platform.faults->uses(operation, use.key), before);
  }
}

TEST_F(OperationHookTest, FailedOperationRaisesAndDoesNothingElse) {
  const std::vector<std::string> keysBefore = platform.store()->keys();
  for (const auto& [operation, use] : uses) {
    SCOPED_TRACE(static_cast<int>(operation));
    platform.faults->fail(operation, use.key);
    EXPECT_THAT(errorOf(use.byModule), IsError("Test", "before", "injected fault"));
  }

  EXPECT_EQ(platform.store()->keys(), keysBefore);
  EXPECT_THAT(platform.memory().getEvents(), IsEmpty());
  EXPECT_THAT(platform.recorder->all(), IsEmpty());
  EXPECT_THAT(platform.broker()
                  ->findModule("GKResourceManager")
                  ->callMethod("getEnabledStateResources", {})
                  .toArray(),
              IsEmpty());
}

TEST_F(OperationHookTest, OperationsWorkAgainAfterTheFault) {
  for (const auto& [operation, use] : uses) {
    SCOPED_TRACE(static_cast<int>(operation));
    platform.faults->fail(operation, use.key);
    EXPECT_THROW(use.byModule(), GKError);
    EXPECT_NO_THROW(use.byModule());
  }
}

TEST_F(OperationHookTest, UseThatFailsByItselfIsAskedForToo) {
  EXPECT_THROW(memory.getData("ghost"), GKError);
  EXPECT_THROW(memory.getDataPtr("ghost"), GKError);
  EXPECT_THROW(platform.broker()->getProxy("Ghost", 0), GKError);
  EXPECT_THROW(dcm.set(GKValue()), GKError);

  EXPECT_EQ(platform.faults->uses(GKOperation::GetData, "ghost"), 1);
  EXPECT_EQ(platform.faults->uses(GKOperation::GetDataPtr, "ghost"), 1);
  EXPECT_EQ(platform.faults->uses(GKOperation::GetProxy, "Ghost"), 1);
  EXPECT_EQ(platform.faults->uses(GKOperation::DcmSet, ""), 1);
}

TEST_F(OperationHookTest, SpecialisedLookUpCountsOnce) {
  const int before = platform.faults->uses(GKOperation::GetProxy, "GKMemory");

  platform.broker()->getSpecialisedProxy<GKMemoryProxy>("GKMemory");

  EXPECT_EQ(platform.faults->uses(GKOperation::GetProxy, "GKMemory"), before + 1);
}

TEST_F(OperationHookTest, RemovedHookIsAskedNoMore) {
  platform.faults->fail(GKOperation::GetData, "key");

  GKOperationHook::install(nullptr);

  EXPECT_EQ(memory.getData("key"), GKValue(1));
  EXPECT_EQ(platform.faults->uses(GKOperation::GetData, "key"), 0);
}

} // namespace
} // namespace GK
