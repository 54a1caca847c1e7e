#include "gk/GKProxy.h"
#include "gk/GKResourceManager.h"
#include "support/PlatformFixture.h"
#include "support/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace GK {
namespace {

using test::TestPlatform;

class ResourceManagerTest : public testing::Test {
protected:
  TestPlatform platform;
  boost::shared_ptr<GKResourceManager> sut = boost::dynamic_pointer_cast<GKResourceManager>(
      platform.broker()->findModule("GKResourceManager"));
};

TEST_F(ResourceManagerTest, NothingIsEnabledAtFirst) {
  EXPECT_THAT(sut->getEnabledStateResources(), IsEmpty());
}

TEST_F(ResourceManagerTest, EnabledStatesAreKeptSortedAndWritten) {
  sut->enableStateResource("Standing", true);
  sut->enableStateResource("Crouching", true);
  sut->enableStateResource("Standing", true);

  EXPECT_THAT(sut->getEnabledStateResources(), ElementsAre("Crouching", "Standing"));
  EXPECT_EQ(platform.value("ResourceManager/State/Standing"), GKValue(true));
}

TEST_F(ResourceManagerTest, DisabledStateIsDroppedAndWritten) {
  sut->enableStateResource("Standing", true);
  sut->enableStateResource("Standing", false);
  sut->enableStateResource("Sitting", false);

  EXPECT_THAT(sut->getEnabledStateResources(), IsEmpty());
  EXPECT_EQ(platform.value("ResourceManager/State/Standing"), GKValue(false));
  EXPECT_EQ(platform.value("ResourceManager/State/Sitting"), GKValue(false));
}

TEST_F(ResourceManagerTest, ObserversSeeEachChangeAsAResource) {
  platform.sleep(5);
  sut->enableStateResource("Standing", true);

  const std::vector<GKNotice> notices = platform.recorder->all();
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_EQ(notices[0].kind, GKNotice::Kind::Resource);
  EXPECT_EQ(notices[0].name, "Standing");
  EXPECT_EQ(notices[0].value, GKValue(true));
  EXPECT_EQ(notices[0].time, 5000);
}

TEST_F(ResourceManagerTest, BoundFormsDoTheSame) {
  const boost::shared_ptr<GKProxy> proxy = platform.broker()->getProxy("GKResourceManager", 0);

  proxy->callVoid("enableStateResource", "Standing", true);

  EXPECT_THAT(proxy->call<std::vector<std::string>>("getEnabledStateResources"),
              ElementsAre("Standing"));
  EXPECT_THAT(test::errorOf([&] { proxy->callVoid("enableStateResource", "Standing", 1); }),
              test::IsRefusal("int", "bool"));
}

} // namespace
} // namespace GK
