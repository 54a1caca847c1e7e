#include "gk/GKMemoryFastAccess.h"
#include "support/TestModules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <string>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace GK {
namespace {

struct GKMemoryFastAccessTest : testing::Test {
  GKMemoryFastAccessTest() {
    GKMemoryFastAccessGate::open();
    platform.set("a", 1.0f);
    platform.set("b", 2.0f);
    platform.set("c", 3.0f);
  }
  ~GKMemoryFastAccessTest() override { GKMemoryFastAccessGate::open(); }

  std::vector<float> read() {
    std::vector<float> values;
    sut.GetValues(values);
    return values;
  }

  test::TestPlatform platform;
  GKMemoryFastAccess sut;
};

TEST_F(GKMemoryFastAccessTest, NeverConnectedEmptiesTheVector) {
  std::vector<float> values(4, 7.0f);
  sut.GetValues(values);
  EXPECT_THAT(values, IsEmpty());
}

TEST_F(GKMemoryFastAccessTest, ReadsInTheOrderOfTheKeysAndFollowsChanges) {
  sut.ConnectToVariables(platform.broker(), {"c", "a"}, false);
  EXPECT_THAT(read(), ElementsAre(3.0f, 1.0f));
  platform.set("a", 1.5f);
  EXPECT_THAT(read(), ElementsAre(3.0f, 1.5f));
}

TEST_F(GKMemoryFastAccessTest, VectorBecomesExactlyAsLongAsTheKeys) {
  sut.ConnectToVariables(platform.broker(), {"a", "b", "c"}, false);
  std::vector<float> values(10, 7.0f);
  sut.GetValues(values);
  EXPECT_THAT(values, ElementsAre(1.0f, 2.0f, 3.0f));
}

TEST_F(GKMemoryFastAccessTest, EmptyKeyListDisconnects) {
  sut.ConnectToVariables(platform.broker(), {"a"}, false);
  sut.ConnectToVariables(platform.broker(), {}, false);
  std::vector<float> values(2, 7.0f);
  sut.GetValues(values);
  EXPECT_THAT(values, IsEmpty());
}

TEST_F(GKMemoryFastAccessTest, WrittenValuesAreWhatTheServiceReturns) {
  sut.ConnectToVariables(platform.broker(), {"a", "b"}, false);
  sut.SetValues({4.0f, 5.0f, 6.0f});
  EXPECT_EQ(platform.value("a"), GKValue(4.0f));
  EXPECT_EQ(platform.value("b"), GKValue(5.0f));
  EXPECT_EQ(platform.value("c"), GKValue(3.0f));
}

TEST_F(GKMemoryFastAccessTest, MissingKeyFailsAndKeepsTheKeysBeforeIt) {
  EXPECT_THROW(sut.ConnectToVariables(platform.broker(), {"a", "missing", "c"}, false), GKError);
  EXPECT_THAT(read(), ElementsAre(1.0f));
  EXPECT_FALSE(platform.value("missing").isValid());
}

TEST_F(GKMemoryFastAccessTest, LooksTheServiceUpOnceForTheObjectAndOnceForEachKey) {
  sut.ConnectToVariables(platform.broker(), {"a", "b"}, false);
  EXPECT_EQ(platform.faults->uses(GKOperation::GetProxy, "GKMemory"), 3);
  sut.ConnectToVariables(platform.broker(), {"a"}, false);
  EXPECT_EQ(platform.faults->uses(GKOperation::GetProxy, "GKMemory"), 4);
}

TEST_F(GKMemoryFastAccessTest, ConnectedPlacesNeedNoFurtherLookUp) {
  sut.ConnectToVariables(platform.broker(), {"a", "b"}, false);
  const int lookUps = platform.faults->uses(GKOperation::GetProxy, "GKMemory");
  read();
  sut.SetValues({1.0f, 2.0f});
  EXPECT_EQ(platform.faults->uses(GKOperation::GetProxy, "GKMemory"), lookUps);
  EXPECT_EQ(platform.faults->uses(GKOperation::GetDataPtr, "a"), 1);
}

TEST_F(GKMemoryFastAccessTest, AfterAStopNothingConnectsAndOldPlacesStay) {
  sut.ConnectToVariables(platform.broker(), {"a", "b"}, false);
  GKMemoryFastAccess::StopAllAccess();
  sut.ConnectToVariables(platform.broker(), {"c"}, false);
  EXPECT_THAT(read(), ElementsAre(1.0f, 2.0f));
  sut.SetValues({8.0f, 9.0f});
  EXPECT_EQ(platform.value("b"), GKValue(9.0f));

  GKMemoryFastAccess other;
  other.ConnectToVariables(platform.broker(), {"a"}, false);
  std::vector<float> values(1, 7.0f);
  other.GetValues(values);
  EXPECT_THAT(values, IsEmpty());
}

TEST_F(GKMemoryFastAccessTest, DataPtrWorksAfterAStopAndWithoutABroker) {
  GKMemoryFastAccess::StopAllAccess();
  const auto* place =
      static_cast<const float*>(GKMemoryFastAccess::getDataPtr(platform.broker(), "b", true));
  EXPECT_EQ(*place, 2.0f);
  EXPECT_EQ(GKMemoryFastAccess::getDataPtr(nullptr, "b", true), place);
  EXPECT_THROW(GKMemoryFastAccess::getDataPtr(platform.broker(), "missing", true), GKError);
}

TEST_F(GKMemoryFastAccessTest, InsertBufferCreatesAndReplaces) {
  sut.insertBuffer("new", "text");
  EXPECT_EQ(platform.value("new"), GKValue("text"));
  sut.insertBuffer("new", 3);
  EXPECT_EQ(platform.value("new"), GKValue(3));
}

TEST_F(GKMemoryFastAccessTest, BufferIsAnIndependentCopy) {
  const std::unique_ptr<GKValue> copy = GKMemoryFastAccess::getBuffer("a");
  EXPECT_EQ(*copy, GKValue(1.0f));
  *copy = GKValue(9.0f);
  EXPECT_EQ(platform.value("a"), GKValue(1.0f));
  EXPECT_THROW(GKMemoryFastAccess::getBuffer("missing"), GKError);
}

TEST_F(GKMemoryFastAccessTest, InnerTestIsFalseWithAWorkingService) {
  EXPECT_FALSE(GKMemoryFastAccess::InnerTest(platform.broker()));
  // It wrote its three ints, then added to their bits as floats; all of them stayed ints.
  std::vector<std::pair<std::string, GKValue>> inserted;
  for (const GKNotice& notice : platform.recorder->ofKind(GKNotice::Kind::Insert)) {
    inserted.emplace_back(notice.name, notice.value);
  }
  EXPECT_THAT(inserted, testing::ElementsAre(testing::Pair("riri", GKValue(1)),
                                             testing::Pair("fifi", GKValue(2)),
                                             testing::Pair("loulou", GKValue(3))));
  // The ints' bits are tiny floats, to which 1, 2 and 3 were added.
  EXPECT_EQ(platform.value("riri"), GKValue(std::bit_cast<std::int32_t>(1.0F)));
  EXPECT_EQ(platform.value("fifi"), GKValue(std::bit_cast<std::int32_t>(2.0F)));
  EXPECT_EQ(platform.value("loulou"), GKValue(std::bit_cast<std::int32_t>(3.0F)));
}

TEST_F(GKMemoryFastAccessTest, InnerTestNeedsABroker) {
  try {
    GKMemoryFastAccess::InnerTest(nullptr);
    FAIL() << "no GKError";
  } catch (const GKError& error) {
    EXPECT_EQ(error.getModule(), "GKMemoryFastAccess");
    EXPECT_EQ(error.getMethod(), "InnerTest:");
    EXPECT_EQ(error.getDescription(), "pBroker was NULL");
    EXPECT_STREQ(error.getFile(), "");
    EXPECT_EQ(error.getLine(), 0);
  }
}

TEST(GKMemoryFastAccess, InnerTestTellsWhyThereIsNoService) {
  test::TestPlatform platform(test::TestPlatform::kNoServices);
  std::string reason;
  try {
    platform.broker()->getProxy("GKMemory", 0);
  } catch (const GKError& error) {
    reason = error.toString();
  }
  try {
    GKMemoryFastAccess::InnerTest(platform.broker());
    FAIL() << "no GKError";
  } catch (const GKError& error) {
    EXPECT_EQ(error.getModule(), "GKMemoryFastAccess");
    EXPECT_EQ(error.getMethod(), "InnerTest");
    EXPECT_EQ(error.getDescription(), "When creating memory proxy: " + reason);
    EXPECT_EQ(error.getLine(), 0);
  }
}

} // namespace
} // namespace GK
