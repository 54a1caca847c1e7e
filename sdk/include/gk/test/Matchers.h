#pragma once

#include "gk/GKValue.h"
#include "gk/test/Platform.h"

#include <gmock/gmock.h>

#include <cmath>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

/// What tests say of `Platform::events()` and `Platform::log()`, such as
/// `EXPECT_THAT(platform.events(), RaisedEvent("FallAlarm", 1.0F, 2.5))`.
namespace gk::test {

/// A value for people: `1.0`, `"Sit"`, `[1, true]`, `invalid`. Floats have the fewest digits that
/// read back to them, and always a point or an exponent.
std::string textOf(const GK::GKValue& value);

/// Whether two values are the same to expectations: an int equals a float of the same value, and
/// NaN equals NaN.
bool isSame(const GK::GKValue& one, const GK::GKValue& other);

// How failures show them.
inline void PrintTo(const Event& event, std::ostream* out) {
  *out << event.time << " s: " << event.name << " " << textOf(event.value);
}
inline void PrintTo(const LogLine& line, std::ostream* out) {
  *out << line.time << " s: level " << line.level << " " << line.category << " " << line.function
       << ": " << line.text;
}

/// Matches values that are the same.
class IsValue {
public:
  using is_gtest_matcher = void;
  explicit IsValue(GK::GKValue value) : fValue(std::move(value)) {}

  bool MatchAndExplain(const GK::GKValue& actual, std::ostream*) const {
    return isSame(actual, fValue);
  }
  void DescribeTo(std::ostream* out) const { *out << "is " << textOf(fValue); }
  void DescribeNegationTo(std::ostream* out) const { *out << "is not " << textOf(fValue); }

private:
  GK::GKValue fValue;
};

/// Matches times, in seconds, that are the same to the microsecond.
class IsTime {
public:
  using is_gtest_matcher = void;
  explicit IsTime(double seconds) : fSeconds(seconds) {}

  bool MatchAndExplain(double actual, std::ostream*) const {
    constexpr double half = 0.5e-6;
    return std::abs(actual - fSeconds) < half;
  }
  void DescribeTo(std::ostream* out) const { *out << "is at " << fSeconds << " s"; }
  void DescribeNegationTo(std::ostream* out) const { *out << "is not at " << fSeconds << " s"; }

private:
  double fSeconds;
};

using EventsMatcher = testing::Matcher<const std::vector<Event>&>;
using LogMatcher = testing::Matcher<const std::vector<LogLine>&>;

/// The event or micro-event was raised with this value.
inline EventsMatcher RaisedEvent(const std::string& name, const GK::GKValue& value) {
  return testing::Contains(testing::AllOf(testing::Field("name", &Event::name, name),
                                          testing::Field("value", &Event::value, IsValue(value))));
}

/// The same at a time, in seconds.
inline EventsMatcher RaisedEvent(const std::string& name, const GK::GKValue& value, double time) {
  return testing::Contains(testing::AllOf(testing::Field("name", &Event::name, name),
                                          testing::Field("value", &Event::value, IsValue(value)),
                                          testing::Field("time", &Event::time, IsTime(time))));
}

/// The event was not raised at all.
inline EventsMatcher NeverRaised(const std::string& name) {
  return testing::Each(testing::Field("name", &Event::name, testing::Ne(name)));
}

/// A line with this text in it was logged.
inline LogMatcher Logged(const std::string& text) {
  return testing::Contains(testing::Field("text", &LogLine::text, testing::HasSubstr(text)));
}

} // namespace gk::test
