#pragma once

#include "gk/GKOperationHook.h"

#include <optional>
#include <string_view>

/// The platform's operations by the names of their methods, as fault injections tell them.
namespace gk::formats {

/// "raiseEvent", ..., "dcm.set", "enableStateResource".
std::string_view operationName(GK::GKOperation operation);

std::optional<GK::GKOperation> findOperation(std::string_view name);

/// False for the operations that are told apart by nothing: they have no key.
bool operationHasKey(GK::GKOperation operation);

} // namespace gk::formats
