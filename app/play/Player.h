#pragma once

#include "app/play/PlayClock.h"
#include "app/play/RunIndex.h"
#include "app/play/RunTape.h"
#include "app/play/TapeWindow.h"
#include "gateway/past/Playback.h"
#include "gk/GKMemory.h"

#include <boost/shared_ptr.hpp>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace gk::app {

/// Where and how the player begins.
struct PlayerStart {
  /// Seconds; the beginning of the run when absent.
  std::optional<GK::GKMicros> time;
  double speed = 1;
  bool isPaused = false;
};

/// Plays a recorded run into a memory service, on a thread of its own: keys have the values that
/// they had, events are raised and ticks end at the times of `clock`, which it sets.
class Player final : public gateway::Playback {
public:
  /// Opens the recording. Raises `InputError`.
  Player(const std::string& path, const PlayerStart& start);
  ~Player() override;
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  /// The clock to be installed.
  const std::shared_ptr<PlayClock>& clock() const noexcept { return fClock; }

  /// Begins, once the clock is installed and somebody listens.
  void begin(boost::shared_ptr<GK::GKMemory> memory);
  /// Plays no more, before the memory service goes. A second time does nothing.
  void stop();

  gateway::PlaybackState state() const override;
  Facts facts() const override;
  void play() override;
  void pause() override;
  void seek(GK::GKMicros time) override;
  void setSpeed(double speed) override;
  void step(Step what, int count) override;
  void setLoop(std::optional<std::pair<GK::GKMicros, GK::GKMicros>> loop) override;
  std::string pastJson(gateway::PastRange range, std::string_view session) override;
  void setListener(std::function<void(Change)> tell) override;

private:
  using Steady = std::chrono::steady_clock;

  /// What clients want and has not been done yet.
  struct Wish {
    /// To go there; without playing what lies between.
    std::optional<GK::GKMicros> seek;
    /// To play up to there.
    std::optional<GK::GKMicros> advance;
    bool isNews = false;
    /// The index is complete.
    bool isIndexed = false;
  };

  void xPlay();
  void xJump(GK::GKMicros time);
  /// Plays all up to this time; false when a client wants something else meanwhile.
  bool xPlayTo(GK::GKMicros time);
  void xApply(const TapeEntry& entry);
  /// What the index knows of this time.
  void xApplyIndex(GK::GKMicros time);
  void xStore(std::size_t key, const GK::GKValue& value);
  void xTell(Change change);
  /// The time of the tick so many behind the present one, or before it.
  GK::GKMicros xTickFrom(GK::GKMicros time, int count);
  GK::GKMicros xClamped(GK::GKMicros time) const;

  const std::string fName;
  /// As it was opened, to be read from by copies.
  const RunTape fOriginal;
  RunTape fTape;
  const std::shared_ptr<PlayClock> fClock;
  boost::shared_ptr<GK::GKMemory> fMemory;

  mutable std::mutex fMutex;
  std::condition_variable fWake;
  gateway::PlaybackState fState;
  Wish fWish;
  bool fIsEnding = false;

  /// To look for ticks elsewhere than where it plays.
  std::mutex fLookMutex;
  RunTape fLook;

  std::mutex fListenerMutex;
  std::function<void(Change)> fListener;

  // For the player's thread.
  TapeWindow fWindow{fTape};
  std::vector<GK::GKMemoryCell*> fCells;
  /// In microseconds; where the clock would stand if nothing were lost in rounding.
  double fCursor = 0;

  std::unique_ptr<RunIndex> fIndex;
  std::thread fThread;
};

} // namespace gk::app
