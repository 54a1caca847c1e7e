#pragma once

#include "gk/GKApi.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace GK {

/// The platform's variant value: what every remote argument, result, event and memory key holds.
///
/// Conversions never guess: an int comes from an int only, a float from a float or an int, a bool
/// from a bool only, a string from a string only. Everything else raises the `GKError` of a refused
/// argument (module and method "convertFromGKValue").
///
/// A plain value without shared state: copies are independent; not synchronised.
class GK_API GKValue {
public:
  enum class Type : std::uint8_t { Invalid, Bool, Int, Float, String, Array };
  using Array = std::vector<GKValue>;

  GKValue() noexcept = default;
  /// From a bool only: no pointer becomes one.
  template <std::same_as<bool> B> GKValue(B value) noexcept : fData(value) {}
  GKValue(std::int32_t value) noexcept : fData(value) {}
  GKValue(float value) noexcept : fData(value) {}
  /// A double is kept as the nearest float.
  GKValue(double value) noexcept : fData(static_cast<float>(value)) {}
  GKValue(std::nullptr_t) = delete;
  GKValue(const char* text) : fData(std::string(text)) {}
  GKValue(std::string_view text) : fData(std::string(text)) {}
  GKValue(std::string text) noexcept : fData(std::move(text)) {}
  GKValue(Array elements) noexcept : fData(std::move(elements)) {}

  Type type() const noexcept { return static_cast<Type>(fData.index()); }
  bool isValid() const noexcept { return type() != Type::Invalid; }

  /// "invalid", "bool", "int", "float", "string" or "array".
  const char* typeName() const noexcept;

  bool toBool() const;
  std::int32_t toInt() const;
  /// From a float, or from an int (nearest float).
  float toFloat() const;
  const std::string& toString() const;
  const Array& toArray() const;

  /// Number of elements; 0 for everything that is not an array.
  std::size_t size() const noexcept;

  /// Element `index`. Raises `GKError` when this is no array or has fewer elements.
  GKValue& operator[](std::size_t index);
  const GKValue& operator[](std::size_t index) const;

  /// Makes this an array of `size` elements; elements that were there stay, new ones are invalid.
  void arraySetSize(std::size_t size);

  /// Appends an element; a value that is no array becomes an empty one first.
  void arrayPush(GKValue element);

  /// Same type and same content. Floats compare as floats: NaN differs from itself, -0.0 equals
  /// 0.0.
  friend bool operator==(const GKValue& left, const GKValue& right) {
    return left.fData == right.fData;
  }

private:
  std::variant<std::monostate, bool, std::int32_t, float, std::string, Array> fData;
};

} // namespace GK
