#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace gk::gateway {

/// How the recording of a run is getting on.
struct RecordingFigures {
  /// Why nothing is being written, such as a full disk; empty while all is well.
  std::string trouble;
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  /// What could not be kept: blocks of the run, and messages for viewers.
  std::uint64_t lostBlocks = 0;
  std::uint64_t lostMessages = 0;
};

/// Gives the figures at this moment; empty where nothing is recorded. Called on any thread.
using RecordingSource = std::function<RecordingFigures()>;

} // namespace gk::gateway
