#pragma once

#include "formats/mcap/Compression.h"
#include "formats/mcap/Sink.h"
#include "formats/mcap/Source.h"
#include "formats/mcap/Verify.h"
#include "gk/GKTime.h"

#include <cstdint>
#include <limits>

namespace gk::formats {

/// A part of a recording. Times in microseconds of the run, both inclusive.
struct CutRange {
  GK::GKMicros from = 0;
  GK::GKMicros to = std::numeric_limits<GK::GKMicros>::max();

  bool isAll() const noexcept {
    return from == 0 && to == std::numeric_limits<GK::GKMicros>::max();
  }
};

/// The metadata that says which part of a run is to be shown, in seconds.
inline constexpr const char* kCutMetadata = "gk.cut";
inline constexpr const char* kCutFromMember = "from";
inline constexpr const char* kCutToMember = "to";

/// What was kept of a recording.
struct CutResult {
  std::uint64_t turns = 0;
  /// Those of the run's log among them.
  std::uint64_t messages = 0;
  std::uint64_t attachments = 0;
  std::uint64_t metadata = 0;
  /// What is wrong with the file, and with the run's log in it: all that is left out.
  mcap::Problems problems;
  mcap::Problems runProblems;
  bool isCutOff = false;
};

/// Writes a part of a recording as a new one.
///
/// Modules have state that no recording holds, so that a run is kept from its beginning to the end
/// of the part, and replays exactly; viewers' messages are kept within the part only. Of a file
/// without a run the times count from its first message. The run's log is written anew: the whole
/// of a damaged recording gives everything that can be read of it.
///
/// Raises `FormatError` for what does not begin as an MCAP file does, `OutputError`, and what
/// `source` raises.
CutResult cutRun(mcap::Source& source, mcap::Sink& sink, const CutRange& range,
                 mcap::Compression compression, const mcap::Progress& progress = nullptr);

} // namespace gk::formats
