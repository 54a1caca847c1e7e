#pragma once

#include "gk/GKValue.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// What the modules tell, in words for people. This is the one place that has them. Any thread.
namespace gk::devices {

/// How much an event is worth to somebody who looks after the robot.
enum class Importance : std::uint8_t {
  Background, ///< comes again and again, or is bookkeeping
  Ordinary,
  Notable, ///< the robot's state has changed
  Alarming ///< somebody should do something
};

/// A value that has a sentence of its own.
struct ValueWords {
  /// A text as it is, "true" or "false", a number in its shortest form without ".0".
  std::string_view value;
  std::string_view sentence;
  /// Where it is another one than the event's.
  std::optional<Importance> importance = std::nullopt;
};

/// What an event says, or a key that modules write.
struct EventWords {
  std::string_view name;
  /// What it is about, named like a channel: "touch", "feet".
  std::string_view subject;
  /// "m", "kg", "%"; empty for pure numbers, names and flags.
  std::string_view unit;
  /// Behind the point; what comes after is noise.
  int digits = 0;
  Importance importance = Importance::Ordinary;
  /// What the value says: "1.0 when it is touched, 0.0 when it is let go".
  std::string_view meaning;
  /// What has happened, with "{value}" for the value and its unit. Empty for a key that is no
  /// event.
  std::string_view sentence = {};
  std::span<const ValueWords> values = {};
};

/// All of them, in the order of the modules.
std::span<const EventWords> eventWords();

/// The words for what our modules tell under this name; null for what others tell.
const EventWords* findEventWords(std::string_view name);

/// What has happened, in one sentence without a full stop: "Obstacle ahead to the left at 0.43 m".
/// Empty for events that have no words.
std::string eventSentence(std::string_view name, const GK::GKValue& value);

/// `Ordinary` for events that have no words.
Importance eventImportance(std::string_view name, const GK::GKValue& value);

} // namespace gk::devices
