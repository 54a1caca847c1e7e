#pragma once

#include "gk/GKClock.h"
#include "gk/GKMemoryStore.h"
#include "gk/GKObserver.h"
#include "gk/GKTime.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the robot tells, as named streams of JSON messages: the same for live viewers and for
/// recordings.
namespace gk::gateway {

/// What may happen to the messages of a channel where they cannot all be delivered.
enum class Flow : std::uint8_t {
  Latest, ///< samples of a state: the newest one is what counts
  Queue   ///< things that happened once: none may be left out for the sake of a sample
};

/// A stream of messages of one shape.
struct Channel {
  /// 1, 2, 3 ... in the order of appearance.
  std::uint32_t id = 0;
  /// Begins with "/".
  std::string topic;
  std::string schemaName;
  /// A JSON Schema of the messages, as JSON text, unless they are no JSON.
  std::string schema;
  Flow flow = Flow::Latest;
  std::string encoding = "json";
  std::string schemaEncoding = "jsonschema";
};

struct ChannelMessage {
  std::uint32_t channel = 0;
  /// Nanoseconds since 1970-01-01T00:00:00 UTC, on the host's clock.
  std::uint64_t time = 0;
  /// One JSON object, unless the channel has another encoding.
  std::string payload;
};

/// Makes the messages of all channels from what observers see.
///
/// "/events", "/log" and "/tick" are there from the start, as is one channel a subject ("/feet",
/// "/sonar", "/joint_states" ...) that samples memory keys after each tick; "/event/NAME" appears
/// when the event is declared or first raised. For one thread at a time; whoever is an observer
/// calls `ofNotice` and `ofTick` from there, or later in the same order.
class Channels {
public:
  /// Says for a channel id whether anybody wants its messages.
  using IsWanted = std::function<bool(std::uint32_t channel)>;

  /// Most channels that belong to a single event. Further events are told on "/events" only.
  static constexpr std::size_t kMaxEventChannels = 1024;

  /// `store` may be null where there is no memory service: then subjects have no fields. `wall` and
  /// `elapsed` are one moment on the clock, for the times of messages.
  Channels(std::shared_ptr<const GK::GKMemoryStore> store, const GK::GKWallTime& wall,
           GK::GKMicros elapsed);
  ~Channels();
  Channels(const Channels&) = delete;
  Channels& operator=(const Channels&) = delete;

  /// All channels so far, sorted by id. Grows at its end only; what is in it does not change.
  const std::deque<Channel>& all() const noexcept { return fChannels; }

  /// The channel of this topic, or null.
  const Channel* find(std::string_view topic) const;

  /// Opens another channel, whose messages come from elsewhere. Returns its id.
  std::uint32_t add(Channel channel);

  /// Opens the channel of an event, if that has not been done.
  void addEvent(const std::string& event);

  /// The messages that a notice makes, and the channels that it opens.
  std::vector<ChannelMessage> ofNotice(const GK::GKNotice& notice);

  /// The samples that the end of a tick makes, of wanted channels only. Values are those of this
  /// moment. `number`: ticks of the module's loop so far; whoever is slow may leave some out.
  std::vector<ChannelMessage> ofTick(GK::GKMicros time, std::string_view module,
                                     std::uint64_t number, const IsWanted& isWanted);

  /// The sample that a channel would give now; nothing for channels of another kind.
  std::optional<ChannelMessage> sample(std::uint32_t channel, GK::GKMicros time);

  /// The time of messages for a time of the clock.
  std::uint64_t nanoseconds(GK::GKMicros time) const noexcept;

private:
  class Sampler;

  std::shared_ptr<const GK::GKMemoryStore> fStore;
  /// Microseconds since 1970 at time 0 of the clock.
  GK::GKMicros fEpoch;
  std::deque<Channel> fChannels;
  std::map<std::string, std::uint32_t, std::less<>> fByTopic;
  std::map<std::string, std::uint32_t, std::less<>> fByEvent;
  std::vector<std::unique_ptr<Sampler>> fSamplers;
  std::uint32_t fEventsId = 0;
  std::uint32_t fLogId = 0;
  std::uint32_t fTickId = 0;

  struct Loop {
    std::uint64_t ticks = 0;
    GK::GKMicros last = 0;
  };
  std::map<std::string, Loop, std::less<>> fLoops;
};

} // namespace gk::gateway
