#include "gateway/stream/Hub.h"

#include "gk/GKClock.h"
#include "messages/json/SameValue.h"
#include "messages/keys/DeviceKeys.h"

#include <utility>

namespace gk::gateway {

namespace {

constexpr std::string_view kVerdictSchema =
    R"({"title":"gk.Verdict","description":"What matters now, worst first","type":"object",)"
    R"("properties":{"verdict":{"type":"array","items":{"type":"object","properties":{)"
    R"("since":{"type":"number","description":"Seconds since the start of the run"},)"
    R"("level":{"type":"integer","description":"1 warning, 2 error"},)"
    R"("text":{"type":"string"},"advice":{"type":"string"},"subject":{"type":"string"}}}}}})";

constexpr std::string_view kPlaybackSchema =
    R"({"title":"gk.Playback","description":"Where the clock of a run that is played stands",)"
    R"("type":"object","properties":{"time":{"type":"number"},"begin":{"type":"number"},)"
    R"("end":{"type":"number"},"speed":{"type":"number"},"playing":{"type":"boolean"},)"
    R"("loop":{},"didSeek":{"type":"boolean"},"file":{"type":"string"},)"
    R"("recorded_s":{"type":"number"},"indexed":{"type":"boolean"}}})";

/// Refreshes from one report of a clock that goes on to the next: twice a second.
constexpr unsigned kPlaybackReports = 5;

} // namespace

Hub::Hub(CallRunner& runner, Counters& counters, std::string version, std::string session,
         Offer::Post post, VerdictWatch& verdict, Past& past, Playback* playback)
    : fOffer(runner, counters, std::move(version), std::move(session), std::move(post), playback),
      fVerdict(verdict), fPast(past) {}

void Hub::open(std::shared_ptr<const Robot> robot) {
  fOffer.open(std::move(robot));
  fPast.open(fOffer.robot()->store());
  fVerdictChannel = fOffer.channels()->add(
      {0, "/verdict", "gk.Verdict", std::string(kVerdictSchema), Flow::Queue});
  fVerdict.look(GK::GKClock::instance().elapsed(), fOffer.robot()->store().get());
  xTellState(fVerdictChannel, R"({"verdict":)" + fVerdict.json() + "}");
  if (fOffer.playback() != nullptr) {
    fPlaybackChannel = fOffer.channels()->add(
        {0, std::string(kPlaybackTopic), "gk.Playback", std::string(kPlaybackSchema), Flow::Queue});
    xTellPlayback(false);
  }
  fAnnounced = fOffer.channels()->all().size();
  for (StreamSession* session : fSessions) {
    session->announce();
  }
}

void Hub::close() {
  fOffer.close();
}

std::shared_ptr<StreamSession> Hub::join(const StreamSession::Limits& limits,
                                         std::function<void()> wake) {
  std::shared_ptr<StreamSession> session(new StreamSession(fOffer, limits, std::move(wake)),
                                         [this](StreamSession* gone) {
                                           fSessions.erase(gone);
                                           delete gone;
                                         });
  fSessions.insert(session.get());
  if (fOffer.robot() != nullptr) {
    session->announce();
  }
  return session;
}

bool Hub::process(const NoticeQueue::Batch& batch) {
  for (const GK::GKNotice& notice : batch.notices) {
    if (notice.kind == GK::GKNotice::Kind::Log) {
      fOffer.counters().addLogLine(notice.level);
    }
    fVerdict.onNotice(notice);
    fPast.onNotice(notice);
  }
  fOffer.counters().setLoops(batch.loops);
  Channels* const channels = fOffer.channels();
  if (channels == nullptr) {
    return false;
  }
  RosChannels* const rosChannels = fOffer.rosChannels();
  const Channels::IsWanted isWanted = [this](std::uint32_t channel) {
    return fOffer.hasSubscriber(channel);
  };
  for (const GK::GKNotice& notice : batch.notices) {
    std::vector<ChannelMessage> messages = channels->ofNotice(notice);
    xAnnounceNew();
    xDeliver(std::move(messages));
    if (rosChannels != nullptr) {
      xDeliver(rosChannels->ofNotice(notice, isWanted));
    }
  }
  bool hasTicked = false;
  for (const NoticeQueue::Loop& loop : batch.loops) {
    std::uint64_t& passedOn = fTicks[loop.module];
    if (std::exchange(passedOn, loop.ticks) != loop.ticks) {
      hasTicked = true;
      fPast.onTick(loop.time, loop.module);
      xTellTick(loop.time, loop.module, loop.ticks);
    }
  }
  if (hasTicked) {
    xCheckWatched();
  }
  return hasTicked;
}

void Hub::xDeliver(std::vector<ChannelMessage> messages) {
  for (ChannelMessage& message : messages) {
    if (fOffer.hasSubscriber(message.channel)) {
      fDeliveries.push_back({&fOffer.channels()->all()[message.channel - 1], message.time,
                             std::make_shared<const std::string>(std::move(message.payload))});
    }
  }
  if (!fDeliveries.empty()) {
    for (StreamSession* session : fSessions) {
      session->deliver(fDeliveries);
    }
    fDeliveries.clear();
  }
}

void Hub::xTellTick(GK::GKMicros time, const std::string& module, std::uint64_t ticks) {
  const Channels::IsWanted isWanted = [this](std::uint32_t channel) {
    return fOffer.hasSubscriber(channel);
  };
  xDeliver(fOffer.channels()->ofTick(time, module, ticks, isWanted));
  if (fOffer.rosChannels() != nullptr) {
    xDeliver(fOffer.rosChannels()->ofTick(time, module, ticks, isWanted));
  }
}

void Hub::xTellState(std::uint32_t channel, std::string payload) {
  const std::uint64_t time = fOffer.channels()->nanoseconds(GK::GKClock::instance().elapsed());
  fOffer.setState(channel, {time, std::make_shared<const std::string>(payload)});
  xDeliver({{channel, time, std::move(payload)}});
}

void Hub::xAnnounceNew() {
  const std::deque<Channel>& all = fOffer.channels()->all();
  if (fAnnounced == all.size()) {
    return;
  }
  fAnnounced = all.size();
  for (StreamSession* session : fSessions) {
    session->announce();
  }
}

void Hub::xCheckWatched() {
  fOffer.watches().refresh();
  for (StreamSession* session : fSessions) {
    session->checkWatched();
  }
}

void Hub::xTellPlayback(bool didSeek) {
  const Playback& playback = *fOffer.playback();
  xTellState(fPlaybackChannel, playbackJson(playback.state(), playback.facts(), didSeek));
  if (didSeek) {
    // Who subscribes from now on has not seen it.
    const Offer::State told = *fOffer.state(fPlaybackChannel);
    fOffer.setState(fPlaybackChannel, {told.time, std::make_shared<const std::string>(playbackJson(
                                                      playback.state(), playback.facts(), false))});
  }
}

void Hub::onPlayback(Playback::Change change) {
  if (fOffer.robot() == nullptr) {
    return;
  }
  if (change.wentBack) {
    fOffer.beginSession();
    fVerdict.reset();
  }
  const PlaybackState state = fOffer.playback()->state();
  for (StreamSession* session : fSessions) {
    session->onPlayback(state, change);
  }
  xTellPlayback(change.didSeek);
  if (change.didSeek) {
    for (const auto& [module, ticks] : fTicks) {
      xTellTick(GK::GKClock::instance().elapsed(), module, ticks);
    }
    xCheckDevices();
    xCheckVerdict();
    xCheckWatched();
  }
}

void Hub::refresh() {
  if (fOffer.robot() == nullptr) {
    return;
  }
  if (fOffer.playback() != nullptr && ++fRefreshes % kPlaybackReports == 0 &&
      fOffer.playback()->state().isPlaying) {
    xTellPlayback(false);
  }
  xCheckDevices();
  xCheckVerdict();
  xCheckWatched();
  const auto frame = std::make_shared<const std::string>(
      timeMessage(fOffer.channels()->nanoseconds(GK::GKClock::instance().elapsed())));
  for (StreamSession* session : fSessions) {
    session->tellTime(frame);
    session->checkDrops();
  }
}

void Hub::xCheckVerdict() {
  if (fVerdict.look(GK::GKClock::instance().elapsed(), fOffer.robot()->store().get())) {
    xTellState(fVerdictChannel, R"({"verdict":)" + fVerdict.json() + "}");
  }
}

void Hub::xCheckDevices() {
  const std::shared_ptr<GK::GKMemoryStore> store = fOffer.robot()->store();
  if (store == nullptr) {
    return;
  }
  const std::vector<messages::DeviceKey>& keys = messages::deviceKeys();
  const bool isFirst = fDevices.empty();
  fDevices.resize(keys.size());
  bool isChanged = false;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    GK::GKValue value = store->get(keys[i].name).value_or(GK::GKValue());
    if (!messages::isSameValue(value, fDevices[i])) {
      fDevices[i] = std::move(value);
      isChanged = true;
    }
  }
  if (isChanged && !isFirst) {
    fOffer.counters().setDeviceChange(GK::GKClock::instance().elapsed());
  }
}

} // namespace gk::gateway
