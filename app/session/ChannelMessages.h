#pragma once

#include "gateway/channels/Channels.h"
#include "runtime/recording/RecordedMessages.h"

#include <map>
#include <memory>
#include <string>

namespace gk::app {

/// The channels of the gateway, for a recording. Samples are taken every tenth of a second: the run
/// log has the device keys of every tick anyway. One that is the same as before is left out, but
/// for one a second, so that a viewer finds something near every place.
class ChannelMessages final : public runtime::MessageMaker {
public:
  static constexpr GK::GKMicros kSamplePeriod = 100'000;
  static constexpr GK::GKMicros kRepeatPeriod = 1'000'000;

  /// `store`: the memory whose keys are sampled. Time 0 is now.
  explicit ChannelMessages(std::shared_ptr<const GK::GKMemoryStore> store);

  std::vector<runtime::RecordedMessage> ofNotice(const GK::GKNotice& notice) override;
  std::vector<runtime::RecordedMessage> ofTick(GK::GKMicros time, const GK::GKTask& task) override;

private:
  struct Loop {
    std::uint64_t ticks = 0;
    GK::GKMicros nextSample = 0;
  };
  /// The latest sample of a channel that was recorded.
  struct Sample {
    std::string payload;
    GK::GKMicros time = 0;
  };

  /// True for a sample to be left out.
  bool xIsRepeated(const gateway::ChannelMessage& message, GK::GKMicros time);

  std::vector<runtime::RecordedMessage> xRecorded(std::vector<gateway::ChannelMessage> messages,
                                                  GK::GKMicros time);

  gateway::Channels fChannels;
  /// By channel number.
  std::map<std::uint32_t, std::shared_ptr<const runtime::RecordedChannel>> fRecorded;
  std::map<std::string, Loop, std::less<>> fLoops;
  /// By channel number.
  std::map<std::uint32_t, Sample> fSamples;
};

} // namespace gk::app
