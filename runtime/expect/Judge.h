#pragma once

#include "formats/lines/Expectation.h"
#include "gk/GKObserver.h"
#include "gk/GKPriorityMutex.h"
#include "gk/GKTime.h"
#include "runtime/expect/Verdict.h"
#include "runtime/expect/Watched.h"
#include "runtime/output/Reporter.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace gk::runtime {

/// How a run is judged.
struct JudgeOptions {
  /// Times come late by up to a tick.
  bool isRealTime = false;
  /// A failure is told as soon as it is certain, with what was nearest until then. Otherwise once
  /// nothing nearer can come.
  bool isAtOnce = false;
};

/// Holds expectations against a run while it goes on. What it keeps grows with the expectations,
/// not with the run.
///
/// All operations from any thread; as an observer it is called by who causes what happens.
class Judge : public GK::GKObserver {
public:
  /// Takes each verdict once; called by whoever causes it, with a lock held.
  using Receiver = std::function<void(Verdict)>;
  /// The present value of a key that is there.
  using ReadKey = std::function<std::optional<GK::GKValue>(const std::string& key)>;

  Judge(std::vector<formats::Expectation> expectations, JudgeOptions options, Receiver receive);
  ~Judge() override;

  /// Before the run.
  void setMemory(ReadKey read) { fReadKey = std::move(read); }

  void onNotice(const GK::GKNotice& notice) override;
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;
  void onTickTimes(const GK::GKTickTimes& times, const GK::GKTask& task) override;

  /// In virtual time: all that happens before `time` has happened.
  void onTime(GK::GKMicros time);

  /// A call of a scenario is about to start, and what came of it.
  void onCall(const std::string& label, std::uint64_t number);
  void onAnswer(const Answer& answer);

  /// The files start again at this time: what was expected until then is judged.
  void onRound(GK::GKMicros start);

  /// The run has ended, at this time, and keys are as they are. What still happens while the host
  /// goes down is seen, but time does not go on.
  void onEnd(GK::GKMicros end);

  /// All is over: judges what is left. Later calls do nothing.
  void finish();

private:
  using Index = std::size_t;

  void xReset(GK::GKMicros start);
  void xUpdateNextDue();
  void xAdvance(GK::GKMicros now);
  void xAdvanceInRound(GK::GKMicros now);
  void xOnDue(Index index);

  GK::GKMicros xBeginOf(Index index) const;
  GK::GKMicros xEndOf(Index index) const;
  /// How much later than it should be something may be seen.
  GK::GKMicros xGrace() const { return fOptions.isRealTime ? fTick : 0; }

  void xOnEvent(Index index, const GK::GKNotice& notice);
  void xOnLog(Index index, const GK::GKNotice& notice);
  /// Something of this name: `isMeant` says whether it is what is expected.
  void xOnSeen(Index index, Seen seen, bool isMeant, double distance);
  std::string xSeenText(Index index, const Seen& seen) const;
  void xFailOnNearest(Index index, std::optional<Seen> after);
  std::string xDidYouMean(const std::string& name) const;

  /// `isLast`: it is not looked at again before it has to fit.
  void xBeginKey(Index index, GK::GKMicros time, bool isLast);
  std::optional<GK::GKValue> xRead(Index index) const;
  std::optional<double> xFits(Index index, const std::optional<GK::GKValue>& value) const;
  void xLookAtKey(Index index, GK::GKMicros time);
  void xHoldKey(Index index, GK::GKMicros time);

  void xJudgeAnswer(Index index, const Answer& answer);

  void xFinishKeys(GK::GKMicros end);
  void xFinishAll(GK::GKMicros end);
  void xFinish(Index index, GK::GKMicros end);
  void xFinishKey(Index index, GK::GKMicros end);
  void xFinishCount(Index index, GK::GKMicros end);
  void xFailOnEnd(Index index, GK::GKMicros end);
  /// In a round that the run's end has cut short: it could still have gone either way.
  void xLeaveOpen(Index index);

  void xFail(Index index, const std::string& but, GK::GKMicros time);
  void xHold(Index index, const std::string& how, GK::GKMicros time,
             std::optional<double> secondsLeft = std::nullopt, double margin = formats::kNoMargin);
  void xTell(Index index, bool holds, std::string text, GK::GKMicros time,
             std::optional<double> secondsLeft, double margin);

  const std::vector<formats::Expectation> fExpectations;
  const JudgeOptions fOptions;
  const Receiver fReceive;
  ReadKey fReadKey;

  /// Read without the lock, so that most of what happens costs a comparison.
  std::atomic<GK::GKMicros> fNextDue{0};

  GK::GKPriorityMutex fMutex;
  std::vector<Watched> fWatched;
  /// Expectations by the event that they are about, and those of log lines.
  std::unordered_map<std::string, std::vector<Index>> fByEvent;
  std::vector<Index> fLogs;
  std::map<std::string, std::vector<Index>> fByCall;
  /// What is to be looked at once this time is over.
  std::multimap<GK::GKMicros, Index> fDue;
  /// Keys that are looked at after every tick.
  std::set<Index> fTicked;
  /// In real time: keys that wait for their first tick.
  std::set<Index> fAwaited;
  /// Names of events that were raised, for whoever misspelt one.
  std::set<std::string> fRaised;
  /// When further rounds begin.
  std::deque<GK::GKMicros> fRounds;
  GK::GKMicros fStart = 0;
  unsigned int fRound = 1;
  bool fHasRounds = false;
  /// The present round is not the first, and the run's end has cut it short.
  bool fIsCut = false;
  /// How long a tick is in real time.
  GK::GKMicros fTick = 20'000;
  std::optional<GK::GKMicros> fEnd;
  bool fIsFinished = false;
};

} // namespace gk::runtime
