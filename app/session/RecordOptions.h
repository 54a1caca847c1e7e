#pragma once

#include "app/options/Command.h"
#include "app/session/SessionOptions.h"
#include "gk/GKTurns.h"
#include "runtime/host/Host.h"
#include "runtime/recording/Recorder.h"

#include <chrono>
#include <optional>
#include <string>

namespace gk::app {

/// The options that say what is recorded and where, as they stand on the command line.
struct RecordOptions {
  std::string file;
  bool isOverwriting = false;
  std::string split;
  std::optional<double> last;
  std::string on;
  double after = 5.0;
  double patience = std::chrono::duration<double>(GK::kTurnPatience).count();
};

/// What is wrong with the name of a recording that is to be written; empty if nothing is.
std::string checkRecordingName(const std::string& name);

/// "--overwrite".
Option addOverwriteFlag(const Command& command, bool& isOverwriting);

void addRecordOptions(const Command& command, RecordOptions& options);

/// How to record a run with these host options; nothing when that is not asked for.
std::optional<runtime::RecorderOptions> recorderOptions(const RecordOptions& options,
                                                        const runtime::HostOptions& host);

} // namespace gk::app
