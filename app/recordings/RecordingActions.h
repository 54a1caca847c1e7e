#pragma once

#include "formats/mcap/Compression.h"

#include <optional>
#include <string>
#include <vector>

/// What the subcommands of `gk recording` do. All write to standard output, draw a progress bar,
/// and return the exit code; they raise `InputError` and `OutputError`.
namespace gk::app {

/// What a recording holds.
int showRecording(const std::string& file);

/// Whether all of it is as it should be: 0 for yes, otherwise the problems and 1.
int verifyRecording(const std::string& file);

/// Its messages as JSON Lines, those of these topics or all.
int printRecording(const std::string& file, const std::vector<std::string>& topics);

/// Everything of it that can be read into a new file, which is then checked. An earlier recording
/// of that name is an error unless it is to be overwritten.
int recoverRecording(const std::string& file, const std::string& out, bool isOverwriting);

/// The same recording as a file of another kind, told by the ending.
int convertRecording(const std::string& file, const std::string& out,
                     formats::mcap::Compression compression, bool isOverwriting);

/// What a recording's run tells ROS 2, as a bag in a new folder. A recorded run is repeated, all
/// else is run through the module library.
int convertToBag(const std::string& file, const std::string& folder,
                 formats::mcap::Compression compression);

/// A part of a recording, in seconds of the run.
struct RecordingPart {
  double from = 0;
  /// To the end where there is none.
  std::optional<double> to;
};

/// A part of a recording as a new one: a run from its beginning to the end of the part.
int cutRecording(const std::string& file, const std::string& out, const RecordingPart& part,
                 bool isOverwriting);

} // namespace gk::app
