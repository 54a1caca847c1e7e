#pragma once

#include "gk/GKError.h"
#include "gk/GKValue.h"

#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace GK {

/// Conversion between C++ types of bound methods and `GKValue`.
///
/// `from` raises the `GKError` of a refused argument; `text` is the type's name in descriptions.
/// There is none for pointers, so that none is taken for a bool.
template <class T> struct GKConvert;

template <> struct GKConvert<GKValue> {
  static const GKValue& from(const GKValue& value) { return value; }
  static GKValue to(GKValue value) { return value; }
  static std::string text() { return "value"; }
};

template <> struct GKConvert<bool> {
  static bool from(const GKValue& value) { return value.toBool(); }
  static GKValue to(bool value) { return value; }
  static std::string text() { return "bool"; }
};

template <> struct GKConvert<int> {
  static int from(const GKValue& value) { return value.toInt(); }
  static GKValue to(int value) { return value; }
  static std::string text() { return "int"; }
};

template <> struct GKConvert<float> {
  static float from(const GKValue& value) { return value.toFloat(); }
  static GKValue to(float value) { return value; }
  static std::string text() { return "float"; }
};

/// Travels as a float: the nearest one.
template <> struct GKConvert<double> {
  static double from(const GKValue& value) { return double{value.toFloat()}; }
  static GKValue to(double value) { return value; }
  static std::string text() { return "float"; }
};

/// Travels as an int. Raises `GKError` where an int cannot hold it, or it cannot hold the int.
template <> struct GKConvert<unsigned int> {
  static unsigned int from(const GKValue& value) {
    const int number = value.toInt();
    if (number < 0) {
      throw GKError("convertFromGKValue", "convertFromGKValue",
                    std::to_string(number) + " is negative");
    }
    return static_cast<unsigned int>(number);
  }
  static GKValue to(unsigned int value) {
    if (value > static_cast<unsigned int>(std::numeric_limits<int>::max())) {
      throw GKError("convertToGKValue", "convertToGKValue",
                    std::to_string(value) + " is more than an int can hold");
    }
    return static_cast<int>(value);
  }
  static std::string text() { return "int"; }
};

template <> struct GKConvert<std::string> {
  static const std::string& from(const GKValue& value) { return value.toString(); }
  static GKValue to(std::string value) { return GKValue(std::move(value)); }
  static std::string text() { return "string"; }
};

/// String literals as arguments of calls; nothing converts back to them.
template <> struct GKConvert<const char*> {
  static GKValue to(const char* text) { return GKValue(text); }
};

/// As string literals are; nothing would keep what a view is of.
template <> struct GKConvert<std::string_view> {
  static GKValue to(std::string_view text) { return GKValue(text); }
};

/// Lists of any convertible type travel as arrays.
template <class T> struct GKConvert<std::vector<T>> {
  static std::vector<T> from(const GKValue& value) {
    std::vector<T> list;
    list.reserve(value.toArray().size());
    for (const GKValue& element : value.toArray()) {
      list.push_back(GKConvert<T>::from(element));
    }
    return list;
  }
  static GKValue to(const std::vector<T>& list) {
    GKValue::Array array;
    array.reserve(list.size());
    for (const T& element : list) {
      array.push_back(GKConvert<T>::to(element));
    }
    return GKValue(std::move(array));
  }
  static std::string text() { return "vector of " + GKConvert<T>::text(); }
};

/// The conversion for a parameter or result declared as `const T&`, `T&` or `T`.
template <class T> using GKConvertOf = GKConvert<std::remove_cv_t<std::remove_reference_t<T>>>;

} // namespace GK
