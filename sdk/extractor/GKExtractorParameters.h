#pragma once

namespace GK {

/// What one subscriber of an extractor asked for.
struct GKExtractorParameters {
  /// Refresh period in milliseconds; -1: not given.
  int period = -1;
  /// Precision in the extractor's own unit; -1: not given.
  float precision = -1.0F;
};

} // namespace GK
