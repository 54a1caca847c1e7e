#include "formats/lines/OutputLine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

using namespace gk::formats;
using GK::GKNotice;
using GK::GKValue;
using testing::HasSubstr;

namespace {

constexpr GK::GKMicros kTime = 1'520'000;

std::string lineOf(const GKNotice& notice) {
  std::string out;
  appendNotice(out, notice);
  return out;
}

GKNotice notice(GKNotice::Kind kind, std::string name, GKValue value) {
  GKNotice result;
  result.kind = kind;
  result.time = kTime;
  result.name = std::move(name);
  result.value = std::move(value);
  return result;
}

std::string kindsErrorOf(std::string_view kinds) {
  try {
    LineKinds::parse(kinds);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  ADD_FAILURE() << "no error in " << kinds;
  return {};
}

} // namespace

TEST(OutputLine, DeclarationsTellTheOwner) {
  GKNotice declared = notice(GKNotice::Kind::Declare, "robotPoseChanged", {});
  declared.time = 0;
  declared.owner = "GKRobotPose";
  EXPECT_EQ(lineOf(declared), "{\"t\":0,\"kind\":\"declare\",\"event\":\"robotPoseChanged\","
                              "\"owner\":\"GKRobotPose\"}\n");
}

TEST(OutputLine, EventsTellTheirValues) {
  EXPECT_EQ(lineOf(notice(GKNotice::Kind::Event, "SonarLeftDetected", 0.25F)),
            "{\"t\":1.52,\"kind\":\"event\",\"name\":\"SonarLeftDetected\",\"value\":0.25}\n");
  EXPECT_EQ(lineOf(notice(GKNotice::Kind::MicroEvent, "footContactChanged", true)),
            "{\"t\":1.52,\"kind\":\"micro\",\"name\":\"footContactChanged\",\"value\":true}\n");
}

TEST(OutputLine, InsertionsTellTheKey) {
  EXPECT_EQ(lineOf(notice(GKNotice::Kind::Insert, "robotPose", 0.0F)),
            "{\"t\":1.52,\"kind\":\"data\",\"key\":\"robotPose\",\"value\":0.0}\n");
}

TEST(OutputLine, OrdersTellTheirValue) {
  const GKValue command(GKValue::Array{68.0F, 10});
  const GKValue order(
      GKValue::Array{"US/Actuator/Value", "Merge", GKValue(GKValue::Array{command})});
  EXPECT_EQ(lineOf(notice(GKNotice::Kind::Order, "", order)),
            "{\"t\":1.52,\"kind\":\"order\",\"value\":[\"US/Actuator/Value\",\"Merge\","
            "[[68.0,10]]]}\n");
}

TEST(OutputLine, ResourcesTellWhetherTheyAreEnabled) {
  EXPECT_EQ(lineOf(notice(GKNotice::Kind::Resource, "Standing", false)),
            "{\"t\":1.52,\"kind\":\"resource\",\"name\":\"Standing\",\"enabled\":false}\n");
}

TEST(OutputLine, LogLinesTellLevelCategoryFunctionAndText) {
  GKNotice log = notice(GKNotice::Kind::Log, "motion.sonar", {});
  log.level = 3;
  log.owner = "init";
  log.text = "a \"b\"\nc";
  EXPECT_EQ(lineOf(log), "{\"t\":1.52,\"kind\":\"log\",\"level\":3,\"category\":\"motion.sonar\","
                         "\"function\":\"init\",\"text\":\"a \\\"b\\\"\\nc\"}\n");
}

TEST(OutputLine, ResultsOfMethodsWithoutResultHaveNoValue) {
  const GKValue value(GKValue::Array{});
  std::string out;
  appendResult(out, kTime, "GKSonar.getOutputNames", &value);
  appendResult(out, kTime, "GKSonar.subscribe", nullptr);
  EXPECT_EQ(out, "{\"t\":1.52,\"kind\":\"result\",\"call\":\"GKSonar.getOutputNames\","
                 "\"value\":[]}\n"
                 "{\"t\":1.52,\"kind\":\"result\",\"call\":\"GKSonar.subscribe\"}\n");
}

TEST(OutputLine, ErrorsOfThePlatformTellModuleAndMethod) {
  std::string out;
  appendError(out, kTime, "first", GK::GKError("GKMemory", "getData", "no such key: a"));
  EXPECT_EQ(out, "{\"t\":1.52,\"kind\":\"error\",\"call\":\"first\",\"module\":\"GKMemory\","
                 "\"method\":\"getData\",\"description\":\"no such key: a\"}\n");
}

TEST(OutputLine, OtherErrorsHaveOnlyADescription) {
  std::string out;
  appendError(out, kTime, "first", "out of memory");
  EXPECT_EQ(out, "{\"t\":1.52,\"kind\":\"error\",\"call\":\"first\","
                 "\"description\":\"out of memory\"}\n");
}

TEST(OutputLine, UnknownKeysHaveNoValue) {
  const GKValue value(std::numeric_limits<float>::quiet_NaN());
  std::string out;
  appendValue(out, kTime, "a", &value);
  appendValue(out, kTime, "b", nullptr);
  EXPECT_EQ(out, "{\"t\":1.52,\"kind\":\"value\",\"key\":\"a\",\"value\":{\"float\":\"nan\"}}\n"
                 "{\"t\":1.52,\"kind\":\"value\",\"key\":\"b\"}\n");
}

TEST(OutputLine, PagesTellTheirText) {
  std::string out;
  appendPage(out, kTime, "GKSonar", "<p>a/b</p>\n");
  EXPECT_EQ(out, "{\"t\":1.52,\"kind\":\"page\",\"module\":\"GKSonar\","
                 "\"html\":\"<p>a/b</p>\\n\"}\n");
}

TEST(OutputLine, SamplesTellTheirValuesInOrder) {
  const std::vector<std::pair<std::string, GKValue>> values{{"b", 1}, {"a", 0.5F}};
  std::string out;
  appendSample(out, 20'000, values);
  appendSample(out, 40'000, {});
  EXPECT_EQ(out, "{\"t\":0.02,\"kind\":\"sample\",\"values\":{\"b\":1,\"a\":0.5}}\n"
                 "{\"t\":0.04,\"kind\":\"sample\",\"values\":{}}\n");
}

TEST(LineKinds, EveryKindHasItsName) {
  EXPECT_EQ(lineKindName(LineKind::Declare), "declare");
  EXPECT_EQ(lineKindName(LineKind::Event), "event");
  EXPECT_EQ(lineKindName(LineKind::Micro), "micro");
  EXPECT_EQ(lineKindName(LineKind::Data), "data");
  EXPECT_EQ(lineKindName(LineKind::Order), "order");
  EXPECT_EQ(lineKindName(LineKind::Resource), "resource");
  EXPECT_EQ(lineKindName(LineKind::Log), "log");
  EXPECT_EQ(lineKindName(LineKind::Result), "result");
  EXPECT_EQ(lineKindName(LineKind::Error), "error");
  EXPECT_EQ(lineKindName(LineKind::Value), "value");
  EXPECT_EQ(lineKindName(LineKind::Page), "page");
  EXPECT_EQ(lineKindName(LineKind::Sample), "sample");
}

TEST(LineKinds, AListKeepsWhatItNames) {
  const LineKinds sut = LineKinds::parse("event,sample,event");
  EXPECT_TRUE(sut.contains(LineKind::Event));
  EXPECT_TRUE(sut.contains(LineKind::Sample));
  EXPECT_FALSE(sut.contains(LineKind::Micro));
  EXPECT_FALSE(sut.contains(LineKind::Declare));
}

TEST(LineKinds, AllKeepsEverything) {
  for (std::size_t kind = 0; kind < kLineKinds; ++kind) {
    EXPECT_TRUE(LineKinds::all().contains(static_cast<LineKind>(kind)));
    EXPECT_TRUE(LineKinds::parse(lineKindName(static_cast<LineKind>(kind)))
                    .contains(static_cast<LineKind>(kind)));
  }
}

TEST(LineKinds, AnUnknownNameIsNamed) {
  EXPECT_THAT(kindsErrorOf("event,evnt,log"), HasSubstr("\"evnt\""));
  EXPECT_THAT(kindsErrorOf("event, log"), HasSubstr("\" log\""));
  EXPECT_THAT(kindsErrorOf("Event"), HasSubstr("\"Event\""));
  EXPECT_THAT(kindsErrorOf(""), HasSubstr("\"\""));
  EXPECT_THAT(kindsErrorOf("event,"), HasSubstr("\"\""));
}
