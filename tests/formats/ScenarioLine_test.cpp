#include "formats/lines/OperationNames.h"
#include "formats/lines/ScenarioLine.h"
#include "PlayedTo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using namespace gk::formats;
using namespace gk::messages;
using GK::GKOperation;
using GK::GKValue;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

namespace {

ScenarioLine parse(const std::string& text) {
  return parseScenarioLine(text, testKeyType);
}

template <class A> A parseAs(const std::string& text) {
  return std::get<A>(parse(text).action);
}

std::string lineErrorOf(const std::string& text) {
  try {
    parse(text);
  } catch (const FormatError& error) {
    return error.what();
  }
  ADD_FAILURE() << "no error in " << text;
  return {};
}

FailAction parseFail(const std::string& members) {
  return parseAs<FailAction>("{\"t\":0,\"fail\":{" + members + "}}");
}

std::string failError(const std::string& members) {
  return lineErrorOf("{\"t\":0,\"fail\":{" + members + "}}");
}

} // namespace

TEST(ScenarioLine, TheTimeIsANumber) {
  EXPECT_EQ(parse(R"({"t":2,"get":[]})").time, 2.0);
  EXPECT_EQ(parse(R"({"get":[],"t":0.25})").time, 0.25);
  EXPECT_EQ(parse(R"({"set":{}})").time, std::nullopt);
  for (const char* time : {"\"1\"", "true", "null", "[1]", R"({"float":"inf"})"}) {
    EXPECT_EQ(lineErrorOf("{\"t\":" + std::string(time) + ",\"get\":[]}"),
              "\"t\" takes seconds as a number");
  }
}

TEST(ScenarioLine, ALineIsOneObject) {
  EXPECT_EQ(lineErrorOf("[]"), "a line is an object");
  EXPECT_EQ(lineErrorOf("3"), "a line is an object");
  EXPECT_EQ(lineErrorOf("{}"), "the line has no action");
  EXPECT_EQ(lineErrorOf(R"({"t":0})"), "the line has no action");
  EXPECT_THAT(lineErrorOf(R"({"t":0,"get":[]} {})"), HasSubstr("more text after the end"));
  EXPECT_THAT(lineErrorOf(R"({"t":0,"t":1,"get":[]})"), HasSubstr("member \"t\" stands twice"));
  EXPECT_THAT(lineErrorOf(R"({"t":0,"get":[)"), HasSubstr("incomplete"));
}

TEST(ScenarioLine, ALineHasOneAction) {
  EXPECT_EQ(lineErrorOf(R"({"t":0,"set":{},"get":[]})"),
            R"(two actions in a line, "set" and "get")");
}

TEST(ScenarioLine, UnknownMembersAreRefused) {
  EXPECT_EQ(lineErrorOf(R"({"t":0,"jump":1})"), "unknown action or member \"jump\"");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"get":[],"x":1})"), "unknown action or member \"x\"");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"get":[],"as":"x"})"), "unknown action or member \"as\"");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"get":[],"args":[]})"), "unknown action or member \"args\"");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"call":"A.b","arg":[]})"), "unknown action or member \"arg\"");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"Get":[]})"), "unknown action or member \"Get\"");
}

TEST(ScenarioLine, OnlySetUnsetAndFailComeBeforeLoading) {
  EXPECT_NO_THROW(parse(R"({"set":{}})"));
  EXPECT_NO_THROW(parse(R"({"unset":[]})"));
  EXPECT_NO_THROW(parse(R"({"fail":{"operation":"getData"}})"));
  EXPECT_EQ(lineErrorOf(R"({"call":"A.b"})"), "\"call\" needs a time \"t\"");
  EXPECT_EQ(lineErrorOf(R"({"get":[]})"), "\"get\" needs a time \"t\"");
  EXPECT_EQ(lineErrorOf(R"({"getOutput":"A"})"), "\"getOutput\" needs a time \"t\"");
  EXPECT_EQ(lineErrorOf(R"({"exit":true})"), "\"exit\" needs a time \"t\"");
}

TEST(ScenarioLine, UnsetTakesNoTime) {
  EXPECT_EQ(lineErrorOf(R"({"t":0,"unset":["a"]})"),
            "\"unset\" takes no time: it comes before loading");
}

TEST(ScenarioLine, SetTakesValuesByTheirKeys) {
  const auto action =
      parseAs<SetAction>(R"({"t":0,"set":{"z":3,"float/a":3,"int/b":4.0,"s":["x",true]}})");
  EXPECT_THAT(action.values, ElementsAre(Pair("z", GKValue(3)), Pair("float/a", GKValue(3.0F)),
                                         Pair("int/b", GKValue(4)),
                                         Pair("s", GKValue(GKValue::Array{"x", true}))));
}

TEST(ScenarioLine, SetRefusesValuesThatDoNotFitTheirKeys) {
  EXPECT_EQ(lineErrorOf(R"({"t":0,"set":{"int/a":34.5}})"),
            "key \"int/a\": takes an int of 32 bits, not 34.5");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"set":{"b":1,"float/a":[1.0]}})"),
            "key \"float/a\": takes a float, not an array");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"set":{"a":2147483648}})"),
            "key \"a\": the int 2147483648 is beyond 32 bits");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"set":["a"]})"), "\"set\" takes an object of keys and values");
  EXPECT_THAT(lineErrorOf(R"({"t":0,"set":{"a":1,"a":2}})"),
              HasSubstr("member \"a\" stands twice"));
}

TEST(ScenarioLine, UnsetTakesPatterns) {
  EXPECT_THAT(parseAs<UnsetAction>(R"({"unset":["a","b/*"]})").patterns, ElementsAre("a", "b/*"));
  EXPECT_EQ(lineErrorOf(R"({"unset":"a"})"), "\"unset\" takes an array of strings");
  EXPECT_EQ(lineErrorOf(R"({"unset":[1]})"), "\"unset\" takes an array of strings");
}

TEST(ScenarioLine, CallNamesModuleAndMethod) {
  const auto action = parseAs<CallAction>(R"({"t":0,"call":"GKSonar.subscribe"})");
  EXPECT_EQ(action.module, "GKSonar");
  EXPECT_EQ(action.method, "subscribe");
  EXPECT_THAT(action.args, IsEmpty());
  EXPECT_EQ(action.label, "GKSonar.subscribe");
}

TEST(ScenarioLine, CallTakesArgumentsAndALabel) {
  const auto action =
      parseAs<CallAction>(R"({"t":0,"as":"first","args":["gk",20,0.5,[true],null],"call":"A.b"})");
  EXPECT_EQ(action.label, "first");
  EXPECT_THAT(action.args, ElementsAre(GKValue("gk"), GKValue(20), GKValue(0.5F),
                                       GKValue(GKValue::Array{true}), GKValue()));
}

TEST(ScenarioLine, CallSplitsAtTheFirstPoint) {
  const auto action = parseAs<CallAction>(R"({"t":0,"call":"A.b.c"})");
  EXPECT_EQ(action.module, "A");
  EXPECT_EQ(action.method, "b.c");
}

TEST(ScenarioLine, CallRefusesWhatIsNoCall) {
  for (const char* name : {"", ".", "A", "A.", ".b"}) {
    EXPECT_EQ(lineErrorOf(R"({"t":0,"call":")" + std::string(name) + "\"}"),
              "\"call\": \"" + std::string(name) + "\" is not \"Module.method\"");
  }
  EXPECT_EQ(lineErrorOf(R"({"t":0,"call":1})"), "\"call\" takes a string");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"call":"A.b","args":{}})"), "\"args\" takes an array of values");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"call":"A.b","args":[2147483648]})"),
            "\"args\": the int 2147483648 is beyond 32 bits");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"call":"A.b","as":1})"), "\"as\" takes a string");
}

TEST(ScenarioLine, GetTakesKeys) {
  EXPECT_THAT(parseAs<GetAction>(R"({"t":0,"get":["a","b"]})").keys, ElementsAre("a", "b"));
  EXPECT_EQ(lineErrorOf(R"({"t":0,"get":"a"})"), "\"get\" takes an array of strings");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"get":["a",null]})"), "\"get\" takes an array of strings");
}

TEST(ScenarioLine, GetOutputTakesAModule) {
  EXPECT_EQ(parseAs<GetOutputAction>(R"({"t":0,"getOutput":"GKSonar"})").module, "GKSonar");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"getOutput":["GKSonar"]})"), "\"getOutput\" takes a string");
}

TEST(ScenarioLine, ExitTakesTrue) {
  EXPECT_NO_THROW(parseAs<ExitAction>(R"({"t":0,"exit":true})"));
  EXPECT_EQ(lineErrorOf(R"({"t":0,"exit":false})"), "\"exit\" takes true");
  EXPECT_EQ(lineErrorOf(R"({"t":0,"exit":1})"), "\"exit\" takes true");
}

TEST(ScenarioLine, FailRaisesOnceAtOnceWhenNothingElseIsSaid) {
  const FailAction action = parseFail(R"("operation":"raiseEvent")");
  EXPECT_EQ(action.operation, GKOperation::RaiseEvent);
  EXPECT_EQ(action.key, std::nullopt);
  EXPECT_EQ(action.after, 0);
  EXPECT_EQ(action.count, 1);
}

TEST(ScenarioLine, FailTakesAllItsMembers) {
  const FailAction action =
      parseFail(R"("count":-1,"after":7,"key":"GKMemory","operation":"getProxy")");
  EXPECT_EQ(action.operation, GKOperation::GetProxy);
  EXPECT_EQ(action.key, "GKMemory");
  EXPECT_EQ(action.after, 7);
  EXPECT_EQ(action.count, FailAction::kForever);
}

TEST(ScenarioLine, FailKnowsNineOperations) {
  const std::pair<const char*, GKOperation> operations[] = {
      {"raiseEvent", GKOperation::RaiseEvent},
      {"raiseMicroEvent", GKOperation::RaiseMicroEvent},
      {"insertData", GKOperation::InsertData},
      {"declareEvent", GKOperation::DeclareEvent},
      {"getData", GKOperation::GetData},
      {"getDataPtr", GKOperation::GetDataPtr},
      {"getProxy", GKOperation::GetProxy},
      {"dcm.set", GKOperation::DcmSet},
      {"enableStateResource", GKOperation::EnableStateResource}};
  for (const auto& [name, operation] : operations) {
    EXPECT_EQ(parseFail("\"operation\":\"" + std::string(name) + "\"").operation, operation);
    EXPECT_EQ(operationName(operation), name);
  }
  EXPECT_EQ(failError(R"("operation":"set")"), "\"fail\": unknown operation \"set\"");
  EXPECT_EQ(failError(R"("operation":"RaiseEvent")"), "\"fail\": unknown operation \"RaiseEvent\"");
}

TEST(ScenarioLine, FailTakesAKeyOnlyWhereThereAreKeys) {
  EXPECT_EQ(failError(R"("operation":"dcm.set","key":"a")"),
            "\"fail\": operation \"dcm.set\" has no \"key\"");
  EXPECT_EQ(failError(R"("operation":"enableStateResource","key":"a")"),
            "\"fail\": operation \"enableStateResource\" has no \"key\"");
  EXPECT_EQ(parseFail(R"("operation":"getDataPtr","key":"a")").key, "a");
  EXPECT_EQ(failError(R"("operation":"getData","key":1)"), "\"fail\": \"key\" takes a string");
}

TEST(ScenarioLine, FailCountsFromItsLeastValuesOn) {
  const std::string operation = R"("operation":"getData",)";
  EXPECT_EQ(parseFail(operation + "\"after\":0").after, 0);
  EXPECT_EQ(failError(operation + "\"after\":-1"),
            "\"fail\": \"after\" takes an int of 32 bits from 0 on");
  EXPECT_EQ(parseFail(operation + "\"after\":2147483647").after, 2147483647);
  EXPECT_THAT(failError(operation + "\"after\":2147483648"), HasSubstr("takes an int of 32 bits"));
  EXPECT_EQ(parseFail(operation + "\"count\":1").count, 1);
  EXPECT_EQ(parseFail(operation + "\"count\":0").count, 0);
  EXPECT_EQ(parseFail(operation + "\"count\":-1").count, -1);
  EXPECT_EQ(failError(operation + "\"count\":-2"),
            "\"fail\": \"count\" takes an int of 32 bits from -1 on");
  EXPECT_THAT(failError(operation + "\"count\":1.0"), HasSubstr("takes an int of 32 bits"));
  EXPECT_THAT(failError(operation + "\"after\":\"1\""), HasSubstr("takes an int of 32 bits"));
}

TEST(ScenarioLine, FailRefusesOtherShapes) {
  EXPECT_EQ(lineErrorOf(R"({"fail":"getData"})"), "\"fail\" takes an object");
  EXPECT_EQ(failError(""), "\"fail\" has no \"operation\"");
  EXPECT_EQ(failError(R"("operation":1)"), "\"fail\": \"operation\" takes a string");
  EXPECT_EQ(failError(R"("operation":"getData","times":1)"), "\"fail\": unknown member \"times\"");
}

TEST(ScenarioLine, BlankLinesAndCommentsAskForNothing) {
  EXPECT_TRUE(isScenarioComment(""));
  EXPECT_TRUE(isScenarioComment(" \t"));
  EXPECT_TRUE(isScenarioComment("#"));
  EXPECT_TRUE(isScenarioComment("# {\"t\":0}"));
  EXPECT_FALSE(isScenarioComment(" #"));
  EXPECT_FALSE(isScenarioComment("{} # x"));
}
