#pragma once

#include "formats/recording/Recording.h"
#include "gk/GKClock.h"
#include "messages/json/KeyTypes.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace gk::runtime {

/// Plays recordings into a target, merged by time; at equal times in the order in which they were
/// added. One step of the input is one line.
///
/// For one thread at a time: the clock sees to that.
class Player : public GK::GKInput {
public:
  /// Time between the last line and the first one of the next round when playing in a loop.
  static constexpr GK::GKMicros kLoopGap = 20'000;

  explicit Player(formats::RecordingTarget& target) : fTarget(target) {}

  /// Adds lines that are due at time 0.
  void add(std::vector<formats::Action> actions);

  /// Opens the files and adds them. `companions`: files beside them, which have nothing to carry
  /// out but may make the input go on. Raises `InputError`.
  void open(std::vector<std::string> files, messages::KeyTypeOf keyTypeOf,
            std::vector<std::string> companions = {});

  /// From now on the files start again whenever all have ended. `onRound`, which may be null, is
  /// told when they will.
  void setLoop(bool isLoop, std::function<void(GK::GKMicros)> onRound = nullptr) {
    fIsLoop = isLoop;
    fOnRound = std::move(onRound);
  }

  /// `atEnd`, which may be null, is told the time of the last line when that has been played.
  void setAtEnd(std::function<void(GK::GKMicros)> atEnd) { fAtEnd = std::move(atEnd); }

  /// The actions that come before loading, file by file.
  std::vector<formats::Action> preload() const;

  std::optional<GK::GKMicros> next() override;
  void apply() override;

  /// Plays no further line: the input has ended.
  void stop() { fIsStopped = true; }

  /// True when no line will ever follow.
  bool isAtEnd() const noexcept { return fIsStopped || !fNext.has_value(); }

  /// How much of the files has been read, 0 to 1: that of the file that lags behind most.
  double progress() const noexcept;

  /// What the files had to leave out because it is damaged, and whether that is more than an end
  /// that was cut off.
  std::vector<std::string> problems() const;
  bool isComplete() const noexcept;

  /// What is odd about the files although they can be played: one line each. Before the first line
  /// is played.
  std::vector<std::string> hints() const;

  /// Reads the rest of the files without playing it. Raises `InputError`.
  void checkRest();

private:
  void xOpenFiles();
  void xChooseNext();

  formats::RecordingTarget& fTarget;
  std::vector<std::string> fFiles;
  std::vector<std::string> fCompanions;
  messages::KeyTypeOf fKeyTypeOf;
  std::vector<std::unique_ptr<formats::Recording>> fRecordings;
  /// The recording whose current line comes next, and when.
  formats::Recording* fCurrent = nullptr;
  std::optional<GK::GKMicros> fNext;
  /// Where the present round of a loop began, and when its last line was.
  GK::GKMicros fRoundStart = 0;
  GK::GKMicros fLastTime = 0;
  /// Of the first round: those of the others are the same.
  std::vector<std::string> fProblems;
  bool fIsFirstRound = true;
  bool fIsDamaged = false;
  bool fIsLoop = false;
  std::function<void(GK::GKMicros)> fOnRound;
  std::function<void(GK::GKMicros)> fAtEnd;
  bool fIsStopped = false;
};

} // namespace gk::runtime
