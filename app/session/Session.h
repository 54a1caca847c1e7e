#pragma once

#include "app/session/Judgement.h"
#include "app/session/Listen.h"
#include "app/session/SessionOptions.h"
#include "runtime/host/Host.h"
#include "runtime/recording/Recorder.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace gk::app {

/// How a run is shown.
struct SessionView {
  /// Readable lines on standard output even when JSON Lines go to a file.
  bool isAlwaysReadable = false;
  /// Shows how far the run has come while it takes its time, when standard error is a terminal.
  bool hasProgressBar = false;
  /// Writes a report of the run to this file, if there is one.
  std::string report;
  /// Writes what is sampled as columns to this file, if there is one.
  std::string columns;
  /// Records the run.
  std::optional<runtime::RecorderOptions> record;
  /// Ends the run on SIGINT and SIGTERM, and after this time.
  bool isInterruptible = false;
  std::optional<std::chrono::microseconds> wallLimit;
  /// The run's time moves on request only (`Lockstep`): standard output is for answers.
  bool isLockstep = false;
  /// Serves clients.
  std::optional<ListenOptions> listen;
  /// Where the broker of the robot's fleet is, which is told where its page is.
  FleetPlace fleet = FleetPlace::None;
  /// What is expected of the run.
  JudgeView judge;
  /// More outputs in JSON Lines.
  struct Extra {
    int descriptor = -1;
    formats::LineKinds kinds;
  };
  std::vector<Extra> extra;
  /// Which robot it is, for a run that tells people at its beginning what it is going to do; empty
  /// for one that does not.
  std::string robot;
};

/// Runs a host from start to shutdown with the outputs that the options ask for, and sums up on
/// standard error. Complains in one line there. Returns the exit code.
int runSession(const SessionOptions& options, runtime::HostOptions host, const SessionView& view);

} // namespace gk::app
