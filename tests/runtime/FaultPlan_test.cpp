#include "gk/GKError.h"
#include "runtime/host/FaultPlan.h"

#include <optional>
#include <string>

namespace {

using GK::GKOperation;
using gk::formats::FailAction;
using gk::runtime::FaultPlan;

FailAction fault(GKOperation operation, std::optional<std::string> key, int after, int count) {
  FailAction action;
  action.operation = operation;
  action.key = std::move(key);
  action.after = after;
  action.count = count;
  return action;
}

/// "." for each use that passes, "x" for each that fails.
std::string outcomes(FaultPlan& plan, GKOperation operation, const std::string& key, int uses) {
  std::string text;
  for (int i = 0; i < uses; ++i) {
    try {
      plan.before(operation, key);
      text += '.';
    } catch (const GK::GKError&) {
      text += 'x';
    }
  }
  return text;
}

TEST(FaultPlan, LetsSomeUsesPassThenFailsSome) {
  FaultPlan sut;
  sut.add(fault(GKOperation::RaiseEvent, "A", 2, 3));
  EXPECT_EQ(outcomes(sut, GKOperation::RaiseEvent, "A", 7), "..xxx..");
}

TEST(FaultPlan, OtherKeysAndOperationsDoNotCount) {
  FaultPlan sut;
  sut.add(fault(GKOperation::RaiseEvent, "A", 1, 1));
  EXPECT_EQ(outcomes(sut, GKOperation::RaiseEvent, "B", 3), "...");
  EXPECT_EQ(outcomes(sut, GKOperation::RaiseMicroEvent, "A", 3), "...");
  EXPECT_EQ(outcomes(sut, GKOperation::RaiseEvent, "A", 3), ".x.");
}

TEST(FaultPlan, WithoutKeyAnyKeyCounts) {
  FaultPlan sut;
  sut.add(fault(GKOperation::GetData, std::nullopt, 1, 1));
  EXPECT_EQ(outcomes(sut, GKOperation::GetData, "A", 1), ".");
  EXPECT_EQ(outcomes(sut, GKOperation::GetData, "B", 2), "x.");
}

TEST(FaultPlan, ForEverIsForEver) {
  FaultPlan sut;
  sut.add(fault(GKOperation::DcmSet, std::nullopt, 1, FailAction::kForever));
  EXPECT_EQ(outcomes(sut, GKOperation::DcmSet, "", 5), ".xxxx");
}

TEST(FaultPlan, ACountOfZeroNeverFails) {
  FaultPlan sut;
  sut.add(fault(GKOperation::DcmSet, std::nullopt, 0, 0));
  EXPECT_EQ(outcomes(sut, GKOperation::DcmSet, "", 3), "...");
}

TEST(FaultPlan, EveryFaultConcernedCountsTheUse) {
  FaultPlan sut;
  sut.add(fault(GKOperation::InsertData, "A", 0, 1));
  sut.add(fault(GKOperation::InsertData, std::nullopt, 1, 1));
  EXPECT_EQ(outcomes(sut, GKOperation::InsertData, "A", 3), "xx.");
}

TEST(FaultPlan, TheErrorNamesTheServiceAndTheOperation) {
  const auto errorOf = [](GKOperation operation) {
    FaultPlan sut;
    sut.add(fault(operation, std::nullopt, 0, 1));
    try {
      sut.before(operation, "");
    } catch (const GK::GKError& error) {
      return error.getModule() + " " + error.getMethod() + " " + error.getDescription();
    }
    return std::string("no error");
  };
  EXPECT_EQ(errorOf(GKOperation::GetDataPtr), "GKMemory getDataPtr injected fault");
  EXPECT_EQ(errorOf(GKOperation::GetProxy), "GKBroker getProxy injected fault");
  EXPECT_EQ(errorOf(GKOperation::DcmSet), "DCM dcm.set injected fault");
  EXPECT_EQ(errorOf(GKOperation::EnableStateResource),
            "GKResourceManager enableStateResource injected fault");
}

} // namespace
