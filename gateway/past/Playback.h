#pragma once

#include "gateway/past/Past.h"
#include "gateway/robot/HostMethods.h"
#include "gk/GKTime.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace gk::gateway {

/// Where the clock of a run that is played stands; times in microseconds since the run's start.
struct PlaybackState {
  GK::GKMicros time = 0;
  GK::GKMicros begin = 0;
  GK::GKMicros end = 0;
  /// 0 for as fast as possible.
  double speed = 1;
  bool isPlaying = false;
  std::optional<std::pair<GK::GKMicros, GK::GKMicros>> loop;

  bool hasEnded() const noexcept { return !isPlaying && time >= end; }
};

/// A finished run that is served in the place of a robot: one clock for all clients. What a client
/// wants is so at once in `state`, and carried out soon after. Any thread.
class Playback {
public:
  /// Why everything else that clients want is refused.
  static constexpr const char* kRefusal = "a recording is played";
  static constexpr double kSlowest = 0.001;
  static constexpr double kFastest = 1000;
  /// Samples of no more than this are told in one answer.
  static constexpr GK::GKMicros kMostSamples = 600'000'000;

  enum class Step : std::uint8_t { Event, Tick };

  /// What there is to say about the recording.
  struct Facts {
    std::string file;
    /// Microseconds since 1970 at time 0.
    std::int64_t epoch = 0;
    /// All of its events are known by now.
    bool isIndexed = false;
  };

  virtual ~Playback() = default;

  virtual PlaybackState state() const = 0;
  virtual Facts facts() const = 0;

  /// At the end it begins anew.
  virtual void play() = 0;
  virtual void pause() = 0;
  /// To what there is, at most.
  virtual void seek(GK::GKMicros time) = 0;
  /// As fast as possible for 0, else as fast as can be asked for.
  virtual void setSpeed(double speed) = 0;
  /// So many events or ticks on, or back for a negative number; and pauses.
  virtual void step(Step what, int count) = 0;
  virtual void setLoop(std::optional<std::pair<GK::GKMicros, GK::GKMicros>> loop) = 0;

  /// As `Past::json`, of the whole run.
  virtual std::string pastJson(PastRange range, std::string_view session) = 0;

  struct Change {
    bool didSeek = false;
    bool wentBack = false;
  };
  /// `tell` is called on the thread that plays, which goes on when it returns; null for nobody.
  virtual void setListener(std::function<void(Change)> tell) = 0;
};

/// `{"time":12.3,"begin":0,"end":60,"speed":1.0,"playing":true,"loop":null}`.
std::string playbackJson(const PlaybackState& state);
/// The same with what else the channel tells.
std::string playbackJson(const PlaybackState& state, const Playback::Facts& facts, bool didSeek);

/// "Playback.state" and the like. `playback` outlives the methods.
void addPlaybackMethods(HostMethods& methods, Playback& playback);

} // namespace gk::gateway
