#pragma once

#include "gk/GKMemoryStore.h"

#include <cmath>
#include <cstdint>

/// Reading and writing cells of keys that may not be provided: those are null.
namespace gk::devices {

inline bool isNumber(const GK::GKValue& value) {
  return value.type() == GK::GKValue::Type::Float || value.type() == GK::GKValue::Type::Int;
}

/// What the cell holds as a finite number; `former` when it holds none.
inline double numberIn(const GK::GKMemoryCell* cell, double former) {
  if (cell == nullptr) {
    return former;
  }
  const GK::GKValue value = cell->load();
  return isNumber(value) && std::isfinite(value.toFloat()) ? value.toFloat() : former;
}

inline void put(GK::GKMemoryCell* cell, double value) {
  if (cell != nullptr) {
    cell->storeFloat(static_cast<float>(value));
  }
}

inline void putInt(GK::GKMemoryCell* cell, std::int32_t value) {
  if (cell != nullptr) {
    cell->storeInt(value);
  }
}

} // namespace gk::devices
