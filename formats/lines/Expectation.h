#pragma once

#include "gk/GKTime.h"
#include "gk/GKValue.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What a file expects of a run.
namespace gk::formats {

/// What a value has to be; any will do where nothing is said.
struct ExpectedValue {
  std::optional<GK::GKValue> value;
  /// Numbers may differ from `value` by so much.
  float tolerance = 0.0F;
  /// Limits that the value has to keep away from.
  std::optional<float> above;
  std::optional<float> below;

  bool isAny() const { return !value && !above && !below; }
};

/// One line of expectation.
struct Expectation {
  enum class Subject : std::uint8_t {
    Event, ///< an event or micro-event is raised
    Log,   ///< a line is logged
    Key,   ///< a key has a value
    Count, ///< an event is raised so many times
    Order, ///< events occur in this order
    Call   ///< a call of a scenario returns, or fails
  };

  /// `within` where the line says nothing, in microseconds.
  static constexpr GK::GKMicros kWithin = 100'000;

  std::string file;
  std::size_t line = 0;

  Subject subject = Subject::Event;
  /// Of events and log lines: there must be none.
  bool isNever = false;
  /// Where the window begins, in microseconds since the start; absent for the whole run.
  std::optional<GK::GKMicros> time;
  /// How long the window is: "within" or "for". Absent: to the end of the run, and for a key only
  /// the moment itself.
  std::optional<GK::GKMicros> span;

  /// The event, key, label of a call, or part of a log line.
  std::string name;
  /// Of a log line; 0 for any.
  int level = 0;
  ExpectedValue value;
  /// The key must not be there.
  bool isAbsent = false;
  std::optional<std::uint32_t> atLeast;
  std::optional<std::uint32_t> atMost;
  std::vector<std::string> order;
  /// The call fails with an error that contains this.
  std::optional<std::string> error;
};

/// What a file wants for its run: the first of its lines.
struct FileOptions {
  std::string file;
  std::size_t line = 0;
  /// As on a command line.
  std::vector<std::string> words;

  // For who tests it:

  int exit = 0;
  /// Part of what is said on standard error.
  std::string error;
  /// What modules print.
  std::optional<std::string> out;
};

} // namespace gk::formats
