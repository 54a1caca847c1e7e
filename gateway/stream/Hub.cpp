#include "gateway/stream/Hub.h"

#include "devices/DeviceKeys.h"
#include "formats/json/SameValue.h"
#include "gk/GKClock.h"

#include <utility>

namespace gk::gateway {

Hub::Hub(CallRunner& runner, Counters& counters, std::string version, Offer::Post post)
    : fOffer(runner, counters, std::move(version), std::move(post)) {}

void Hub::open(std::shared_ptr<const Robot> robot) {
  fOffer.open(std::move(robot));
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

void Hub::process(const NoticeQueue::Batch& batch) {
  for (const GK::GKNotice& notice : batch.notices) {
    if (notice.kind == GK::GKNotice::Kind::Log) {
      fOffer.counters().addLogLine(notice.level);
    }
  }
  fOffer.counters().setLoops(batch.loops);
  Channels* const channels = fOffer.channels();
  if (channels == nullptr) {
    return;
  }
  for (const GK::GKNotice& notice : batch.notices) {
    const std::vector<ChannelMessage> messages = channels->ofNotice(notice);
    xAnnounceNew();
    xDeliver(messages);
  }
  const auto isWanted = [this](std::uint32_t channel) { return fOffer.hasSubscriber(channel); };
  bool hasTicked = false;
  for (const NoticeQueue::Loop& loop : batch.loops) {
    std::uint64_t& passedOn = fTicks[loop.module];
    if (std::exchange(passedOn, loop.ticks) != loop.ticks) {
      hasTicked = true;
      xDeliver(channels->ofTick(loop.time, loop.module, loop.ticks, isWanted));
    }
  }
  if (hasTicked) {
    xCheckWatched();
  }
}

void Hub::xDeliver(const std::vector<ChannelMessage>& messages) {
  for (const ChannelMessage& message : messages) {
    if (!fOffer.hasSubscriber(message.channel)) {
      continue;
    }
    const Channel& channel = fOffer.channels()->all()[message.channel - 1];
    const auto payload = std::make_shared<const std::string>(message.payload);
    for (StreamSession* session : fSessions) {
      session->deliver(channel, message.time, payload);
    }
  }
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

void Hub::refresh() {
  if (fOffer.robot() == nullptr) {
    return;
  }
  xCheckDevices();
  xCheckWatched();
  const auto frame = std::make_shared<const std::string>(
      timeMessage(fOffer.channels()->nanoseconds(GK::GKClock::instance().elapsed())));
  for (StreamSession* session : fSessions) {
    session->tellTime(frame);
    session->checkDrops();
  }
}

void Hub::xCheckDevices() {
  const std::shared_ptr<GK::GKMemoryStore> store = fOffer.robot()->store();
  if (store == nullptr) {
    return;
  }
  const std::vector<devices::DeviceKey>& keys = devices::deviceKeys();
  const bool isFirst = fDevices.empty();
  fDevices.resize(keys.size());
  bool isChanged = false;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    GK::GKValue value = store->get(keys[i].name).value_or(GK::GKValue());
    if (!formats::isSameValue(value, fDevices[i])) {
      fDevices[i] = std::move(value);
      isChanged = true;
    }
  }
  if (isChanged && !isFirst) {
    fOffer.counters().setDeviceChange(GK::GKClock::instance().elapsed());
  }
}

} // namespace gk::gateway
