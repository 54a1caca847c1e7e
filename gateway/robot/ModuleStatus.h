#pragma once

#include "devices/meaning/Verdict.h"
#include "gk/GKValue.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace gk::gateway {

/// One row of what a module's bound method `status` tells.
struct StatusRow {
  std::string module;
  std::string name;
  std::string unit;
  GK::GKValue value;
  devices::Level level = devices::Level::Fine;
  /// What it means, in words. May be empty.
  std::string text;

  /// "queue: 12 jobs (more than it can do)", "link: no cable".
  std::string told() const;
};

/// The rows that all modules tell at this moment. Any thread; never waits for a module.
using StatusSource = std::function<std::vector<StatusRow>()>;

/// Most rows of a module, and most bytes of a text in them.
constexpr std::size_t kMaxStatusRows = 64;
constexpr std::size_t kMaxStatusText = 512;

/// Reads what `status` of a module returned: an array of [name, unit, value, level, text]. Raises
/// `FormatError` that says what is wrong with it.
std::vector<StatusRow> statusRows(const std::string& module, const GK::GKValue& answer);

} // namespace gk::gateway
