#pragma once

#include "gk/GKMemoryStore.h"

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace gk::messages::ros {

/// A memory key that may not be there yet. A cell never moves: one look-up is enough, once the key
/// is there.
class KeyCell {
public:
  explicit KeyCell(std::string name) : fName(std::move(name)) {}

  void lookFor(const GK::GKMemoryStore& store) {
    if (fCell == nullptr) {
      fCell = store.find(fName);
    }
  }
  bool isThere() const noexcept { return fCell != nullptr; }

  /// Nothing where the key is not there.
  std::optional<GK::GKValue> value() const {
    return fCell != nullptr ? std::optional(fCell->load()) : std::nullopt;
  }
  /// Nothing where the key is not there or holds no number.
  std::optional<float> number() const {
    if (fCell == nullptr) {
      return std::nullopt;
    }
    const GK::GKValue value = fCell->load();
    const bool isNumber =
        value.type() == GK::GKValue::Type::Float || value.type() == GK::GKValue::Type::Int;
    return isNumber ? std::optional(value.toFloat()) : std::nullopt;
  }
  /// Nothing where the key is not there or holds no int.
  std::optional<std::int32_t> integer() const {
    if (fCell == nullptr) {
      return std::nullopt;
    }
    const GK::GKValue value = fCell->load();
    return value.type() == GK::GKValue::Type::Int ? std::optional(value.toInt()) : std::nullopt;
  }
  /// Nothing where the key is not there or holds no number that is finite.
  std::optional<float> finite() const {
    const std::optional<float> found = number();
    return found && std::isfinite(*found) ? found : std::nullopt;
  }

private:
  std::string fName;
  const GK::GKMemoryCell* fCell = nullptr;
};

/// What a value means as a condition: above 0.
inline bool isAboveZero(const GK::GKValue& value) {
  switch (value.type()) {
  case GK::GKValue::Type::Bool:
    return value.toBool();
  case GK::GKValue::Type::Int:
    return value.toInt() > 0;
  case GK::GKValue::Type::Float:
    return value.toFloat() > 0;
  default:
    return false;
  }
}

} // namespace gk::messages::ros
