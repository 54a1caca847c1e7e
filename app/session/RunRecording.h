#pragma once

#include "gateway/figures/RecordingFigures.h"
#include "runtime/host/Host.h"
#include "runtime/recording/Recorder.h"

#include <boost/shared_ptr.hpp>

#include <optional>
#include <string>

namespace gk::app {

/// The recording of a run, an observer for as long as this object lives; nothing at all when no
/// recording was asked for.
class RunRecording {
public:
  /// Has `host` tell its turns to the recorder. Raises `OutputError` when the file cannot be made.
  RunRecording(const std::optional<runtime::RecorderOptions>& options, runtime::HostOptions& host);
  ~RunRecording();
  RunRecording(const RunRecording&) = delete;
  RunRecording& operator=(const RunRecording&) = delete;

  /// Once the host is there: from now on what happens is recorded as messages as well.
  void attach(const runtime::Host& host);

  /// Once the start has succeeded: the recording is to stay. Raises `OutputError`.
  void confirm();

  /// How the recording is getting on, for clients; empty without one. Valid as long as this object.
  gateway::RecordingSource source() const;

  /// After the run: completes the files and tells on standard error where they are and what they
  /// lack. Raises `OutputError`.
  void finish();

private:
  void xTellOfNothing() const;

  boost::shared_ptr<runtime::Recorder> fRecorder;
  /// Which events are waited for; empty when everything is recorded.
  std::string fPattern;
};

} // namespace gk::app
