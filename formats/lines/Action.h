#pragma once

#include "gk/GKOperationHook.h"
#include "gk/GKValue.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

/// What a line of a scenario asks for.
namespace gk::formats {

/// The device layer writes these keys, in the order of the line.
struct SetAction {
  std::vector<std::pair<std::string, GK::GKValue>> values;
};

/// The device layer does not provide these keys; a pattern that ends in "*" stands for all that
/// begin so. Only before loading.
struct UnsetAction {
  std::vector<std::string> patterns;
};

/// A remote call in a task of its own.
struct CallAction {
  std::string module;
  std::string method;
  std::vector<GK::GKValue> args;
  /// How the answer names the call: the line's "as", or "Module.method".
  std::string label;
};

/// Asks for the present values of keys.
struct GetAction {
  std::vector<std::string> keys;
};

/// Asks for a module's status page.
struct GetOutputAction {
  std::string module;
};

/// Makes an operation fail: `after` more uses pass, then `count` of them raise.
struct FailAction {
  static constexpr std::int32_t kForever = -1;

  GK::GKOperation operation = GK::GKOperation::RaiseEvent;
  /// Event, memory key or module concerned; any when absent.
  std::optional<std::string> key;
  std::int32_t after = 0;
  /// `kForever`: from then on. 0 raises never.
  std::int32_t count = 1;
};

/// Shutdown begins here.
struct ExitAction {};

using Action = std::variant<SetAction, UnsetAction, CallAction, GetAction, GetOutputAction,
                            FailAction, ExitAction>;

} // namespace gk::formats
