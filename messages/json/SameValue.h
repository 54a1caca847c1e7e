#pragma once

#include "gk/GKValue.h"

#include <bit>
#include <cstdint>

namespace gk::messages {

/// Same type and same bits: not a number is equal to itself, and -0.0 differs from 0.0.
inline bool isSameValue(const GK::GKValue& left, const GK::GKValue& right) {
  if (left.type() == GK::GKValue::Type::Float && right.type() == GK::GKValue::Type::Float) {
    return std::bit_cast<std::uint32_t>(left.toFloat()) ==
           std::bit_cast<std::uint32_t>(right.toFloat());
  }
  return left == right;
}

} // namespace gk::messages
