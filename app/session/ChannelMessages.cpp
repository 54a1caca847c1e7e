#include "app/session/ChannelMessages.h"

#include "gk/GKClock.h"

#include <utility>

namespace gk::app {

ChannelMessages::ChannelMessages(std::shared_ptr<const GK::GKMemoryStore> store)
    : fChannels(std::move(store), GK::GKClock::instance().wallTime(),
                GK::GKClock::instance().elapsed()) {}

std::vector<runtime::RecordedMessage> ChannelMessages::ofNotice(const GK::GKNotice& notice) {
  return xRecorded(fChannels.ofNotice(notice), notice.time);
}

std::vector<runtime::RecordedMessage> ChannelMessages::ofTick(GK::GKMicros time,
                                                              const GK::GKTask& task) {
  Loop& loop = fLoops[task.module];
  ++loop.ticks;
  if (time < loop.nextSample) {
    return {};
  }
  loop.nextSample = time + kSamplePeriod;
  const auto isWanted = [](std::uint32_t) { return true; };
  return xRecorded(fChannels.ofTick(time, task.module, loop.ticks, isWanted), time);
}

std::vector<runtime::RecordedMessage>
ChannelMessages::xRecorded(std::vector<gateway::ChannelMessage> messages, GK::GKMicros time) {
  std::vector<runtime::RecordedMessage> recorded;
  recorded.reserve(messages.size());
  for (gateway::ChannelMessage& message : messages) {
    std::shared_ptr<const runtime::RecordedChannel>& channel = fRecorded[message.channel];
    if (channel == nullptr) {
      const gateway::Channel& known = fChannels.all().at(message.channel - 1);
      channel = std::make_shared<runtime::RecordedChannel>(
          runtime::RecordedChannel{known.topic, known.schemaName, known.schema});
    }
    recorded.push_back({channel, time, std::move(message.payload)});
  }
  return recorded;
}

} // namespace gk::app
