#include "app/session/ChannelMessages.h"

#include "gk/GKClock.h"

#include <utility>
#include <vector>

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
  std::vector<gateway::ChannelMessage> samples =
      fChannels.ofTick(time, task.module, loop.ticks, isWanted);
  std::erase_if(samples, [this, time](const gateway::ChannelMessage& message) {
    return xIsRepeated(message, time);
  });
  return xRecorded(std::move(samples), time);
}

bool ChannelMessages::xIsRepeated(const gateway::ChannelMessage& message, GK::GKMicros time) {
  const auto [entry, isFirst] = fSamples.try_emplace(message.channel);
  Sample& sample = entry->second;
  if (!isFirst && sample.payload == message.payload && time - sample.time < kRepeatPeriod) {
    return true;
  }
  sample.payload = message.payload;
  sample.time = time;
  return false;
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
