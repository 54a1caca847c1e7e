#include "app/session/RunRecording.h"

#include "app/session/ChannelMessages.h"
#include "app/session/Complaints.h"
#include "formats/text/NamePattern.h"
#include "formats/text/NearestNames.h"
#include "formats/text/Printable.h"
#include "gk/GKObserver.h"

#include <boost/make_shared.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace gk::app {

RunRecording::RunRecording(const std::optional<runtime::RecorderOptions>& options,
                           runtime::HostOptions& host) {
  if (options) {
    runtime::RecorderOptions recorder = *options;
    recorder.onTrouble = [](const std::string& text) { complain(text); };
    fPattern = options->around ? options->around->pattern : std::string();
    fRecorder = boost::make_shared<runtime::Recorder>(std::move(recorder));
    host.recorder = fRecorder->run();
  }
}

RunRecording::~RunRecording() {
  GK::GKObserverList::instance().remove(fRecorder);
}

void RunRecording::attach(const runtime::Host& host) {
  if (fRecorder != nullptr) {
    fRecorder->setMaker(std::make_unique<ChannelMessages>(host.store()));
    GK::GKObserverList::instance().add(fRecorder);
  }
}

void RunRecording::confirm() {
  if (fRecorder != nullptr) {
    fRecorder->confirm();
  }
}

gateway::RecordingSource RunRecording::source() const {
  if (fRecorder == nullptr) {
    return {};
  }
  return [recorder = fRecorder.get()] {
    runtime::RecordingState state = recorder->state();
    return gateway::RecordingFigures{std::move(state.trouble), state.files, state.bytes,
                                     state.losses.blocks, state.losses.messages};
  };
}

void RunRecording::xTellOfNothing() const {
  const std::string nearest =
      formats::isPattern(fPattern)
          ? std::string()
          : formats::didYouMean(formats::nearestNames(fPattern, fRecorder->events()));
  complain(formats::printable("--record-on: nothing was recorded, there was no event " + fPattern +
                              nearest));
}

void RunRecording::finish() {
  if (fRecorder == nullptr) {
    return;
  }
  std::exception_ptr error;
  try {
    fRecorder->finish();
  } catch (const formats::OutputError&) {
    error = std::current_exception();
  }
  for (const std::string& name : fRecorder->files()) {
    fmt::print(stderr, "recorded {}\n", name);
  }
  if (const std::vector<std::string> earlier = fRecorder->earlierParts(); !earlier.empty()) {
    complain(fmt::format("{} {} of an earlier recording", fmt::join(earlier, ", "),
                         earlier.size() == 1 ? "is" : "are"),
             Severity::Warning);
  }
  if (!fPattern.empty() && fRecorder->files().empty() && error == nullptr) {
    xTellOfNothing();
  }
  const runtime::RecordingLosses losses = fRecorder->losses();
  if (losses.blocks + losses.messages > 0) {
    complain(fmt::format("the recording lacks {} blocks of the run and {} messages, the disk was "
                         "too slow or full",
                         losses.blocks, losses.messages));
  }
  if (losses.overlaps > 0) {
    complain(fmt::format("a task kept others waiting for too long, {} times: the recording may "
                         "replay differently",
                         losses.overlaps),
             Severity::Warning);
  }
  if (error != nullptr) {
    std::rethrow_exception(error);
  }
}

} // namespace gk::app
