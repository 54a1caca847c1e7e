#pragma once

#include "gk/GKValue.h"
#include "messages/json/JsonText.h"
#include "messages/text/FormatError.h"

#include <boost/json/value.hpp>

#include <optional>
#include <string>

/// Values of the platform as JSON: bools, strings, arrays and null (invalid) are themselves, a
/// number with "." or exponent is a float, one without is an int, and {"float": "nan"}, "inf" and
/// "-inf" are the floats that JSON has no number for.
namespace gk::messages {

/// Raises `FormatError` for ints beyond 32 bits and for other objects.
GK::GKValue valueFromJson(const boost::json::value& json);

/// The number, whether it is written as an int or as a float; nothing for everything else, ints
/// beyond 64 bits included.
std::optional<double> numberFromJson(const boost::json::value& json);

void appendJson(std::string& out, const GK::GKValue& value);

/// The float that {"float": "nan"|"inf"|"-inf"} stands for. Raises `FormatError` for other objects.
float specialFloat(const boost::json::object& json);

} // namespace gk::messages
