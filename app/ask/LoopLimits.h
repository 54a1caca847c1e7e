#pragma once

namespace gk::app {

/// Beyond these a loop is not well: seconds by which 99.9 % of its ticks are late at most, and the
/// share of the ticks asked for that come at least.
constexpr double kLatenessLimit = 0.005;
constexpr double kLeastRate = 0.8;

} // namespace gk::app
