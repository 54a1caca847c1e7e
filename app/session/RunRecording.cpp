#include "app/session/RunRecording.h"

#include "app/session/ChannelMessages.h"
#include "gk/GKObserver.h"

#include <boost/make_shared.hpp>
#include <fmt/format.h>

#include <string>

namespace gk::app {

RunRecording::RunRecording(const std::optional<runtime::RecorderOptions>& options,
                           runtime::HostOptions& host) {
  if (options) {
    fRecorder = boost::make_shared<runtime::Recorder>(*options);
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

void RunRecording::finish() {
  if (fRecorder == nullptr) {
    return;
  }
  fRecorder->finish();
  for (const std::string& name : fRecorder->files()) {
    fmt::print(stderr, "recorded {}\n", name);
  }
  const runtime::RecordingLosses losses = fRecorder->losses();
  if (losses.blocks + losses.messages > 0) {
    fmt::print(stderr,
               "gk: the recording lacks {} blocks of the run and {} messages, the disk was too "
               "slow\n",
               losses.blocks, losses.messages);
  }
  if (losses.overlaps > 0) {
    fmt::print(stderr,
               "gk: a task kept others waiting for too long, {} times: the recording may replay "
               "differently\n",
               losses.overlaps);
  }
}

} // namespace gk::app
