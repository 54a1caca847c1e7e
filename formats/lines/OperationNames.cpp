#include "formats/lines/OperationNames.h"

#include <algorithm>
#include <iterator>

namespace gk::formats {

namespace {

using GK::GKOperation;

struct Row {
  GKOperation operation;
  std::string_view name;
  bool hasKey;
};

constexpr Row kOperations[] = {
    {GKOperation::RaiseEvent, "raiseEvent", true},
    {GKOperation::RaiseMicroEvent, "raiseMicroEvent", true},
    {GKOperation::InsertData, "insertData", true},
    {GKOperation::DeclareEvent, "declareEvent", true},
    {GKOperation::GetData, "getData", true},
    {GKOperation::GetDataPtr, "getDataPtr", true},
    {GKOperation::GetProxy, "getProxy", true},
    {GKOperation::DcmSet, "dcm.set", false},
    {GKOperation::EnableStateResource, "enableStateResource", false},
};

const Row& rowOf(GKOperation operation) {
  return *std::ranges::find(kOperations, operation, &Row::operation);
}

} // namespace

std::string_view operationName(GKOperation operation) {
  return rowOf(operation).name;
}

std::optional<GKOperation> findOperation(std::string_view name) {
  const Row* row = std::ranges::find(kOperations, name, &Row::name);
  return row == std::end(kOperations) ? std::nullopt : std::optional(row->operation);
}

bool operationHasKey(GKOperation operation) {
  return rowOf(operation).hasKey;
}

} // namespace gk::formats
