#pragma once

#include "gk/GKObserver.h"
#include "gk/test/Matchers.h"
#include "support/TestPlatform.h"
#include "zu/log.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace GK::test {

using gk::test::textOf;

/// What happened as one line of text, for example "event robotPoseChanged "Sit"" or
/// "warning motion.gkfsr GKFsr: ...".
inline std::string lineOf(const GKNotice& notice) {
  using Kind = GKNotice::Kind;
  switch (notice.kind) {
  case Kind::Declare:
    return "declare " + notice.name + " of " + notice.owner;
  case Kind::Event:
    return "event " + notice.name + " " + textOf(notice.value);
  case Kind::MicroEvent:
    return "micro " + notice.name + " " + textOf(notice.value);
  case Kind::Insert:
    return "data " + notice.name + " " + textOf(notice.value);
  case Kind::Order:
    return "order " + textOf(notice.value);
  case Kind::Resource:
    return "resource " + notice.name + " " + textOf(notice.value);
  case Kind::Log:
    return std::string(zu::log::levelName(notice.level)) + " " + notice.name + " " + notice.owner +
           ": " + notice.text;
  }
  return {};
}

/// Everything that has happened since the last call, in order.
inline std::vector<std::string> takeLines(TestPlatform& platform) {
  std::vector<std::string> lines;
  for (const GKNotice& notice : platform.recorder->all()) {
    lines.push_back(lineOf(notice));
  }
  platform.recorder->clear();
  return lines;
}

/// The floats next to `value` on either side.
inline float below(float value) {
  return std::nextafter(value, -std::numeric_limits<float>::infinity());
}
inline float above(float value) {
  return std::nextafter(value, std::numeric_limits<float>::infinity());
}

inline constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

} // namespace GK::test
