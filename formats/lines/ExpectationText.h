#pragma once

#include "formats/lines/Expectation.h"

#include <string>
#include <string_view>

/// Expectations as people read them.
namespace gk::formats {

/// Seconds with at least three decimals: "2.000", "0.000001".
std::string momentText(GK::GKMicros time);

/// "1.0", "nan", "\"Belly\"".
std::string valueText(const GK::GKValue& value);

/// What is expected, from "X 1.0 within 0.1 s of 2.000" to "no X from 0.600 to 1.000 s". `start` is
/// added to times.
std::string expectedText(const Expectation& expectation, GK::GKMicros start);

/// Something that was raised: "X 0.0 at 0.980 s".
std::string raisedText(std::string_view name, const GK::GKValue& value, GK::GKMicros time);

/// A line that was logged: "log line \"text\" of level 3 at 0.980 s".
std::string loggedText(std::string_view text, int level, GK::GKMicros time);

} // namespace gk::formats
