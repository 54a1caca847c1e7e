#include "runtime/expect/Judge.h"

#include "formats/lines/ExpectationText.h"
#include "messages/notices/Raise.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <utility>

namespace gk::runtime {

namespace {

using formats::Expectation;
using Subject = Expectation::Subject;
using Step = Watched::Step;

constexpr GK::GKMicros kNever = std::numeric_limits<GK::GKMicros>::max();
/// So many names of events are kept for whoever misspelt one.
constexpr std::size_t kMostNames = 10'000;

bool isDone(const Watched& watched) {
  return watched.step == Step::Done;
}

} // namespace

Judge::Judge(std::vector<Expectation> expectations, JudgeOptions options, Receiver receive)
    : fExpectations(std::move(expectations)), fOptions(options), fReceive(std::move(receive)) {
  xReset(0);
}

Judge::~Judge() = default;

void Judge::xReset(GK::GKMicros start) {
  fStart = start;
  fWatched.assign(fExpectations.size(), {});
  fByEvent.clear();
  fLogs.clear();
  fByCall.clear();
  fDue.clear();
  fTicked.clear();
  fAwaited.clear();
  for (Index i = 0; i < fExpectations.size(); ++i) {
    const Expectation& expectation = fExpectations[i];
    switch (expectation.subject) {
    case Subject::Event:
    case Subject::Count:
      fByEvent[expectation.name].push_back(i);
      break;
    case Subject::Order:
      for (const std::string& name : std::set(expectation.order.begin(), expectation.order.end())) {
        fByEvent[name].push_back(i);
      }
      break;
    case Subject::Log:
      fLogs.push_back(i);
      break;
    case Subject::Call:
      fByCall[expectation.name].push_back(i);
      break;
    case Subject::Key:
      fDue.emplace(start + *expectation.time, i);
      break;
    }
    if (expectation.span && expectation.subject != Subject::Key) {
      fDue.emplace(xEndOf(i) + xGrace(), i);
    }
  }
  xUpdateNextDue();
}

GK::GKMicros Judge::xBeginOf(Index index) const {
  return fStart + fExpectations[index].time.value_or(0);
}

GK::GKMicros Judge::xEndOf(Index index) const {
  const Expectation& expectation = fExpectations[index];
  return expectation.span ? xBeginOf(index) + *expectation.span : kNever;
}

void Judge::xUpdateNextDue() {
  GK::GKMicros next = fDue.empty() ? kNever : fDue.begin()->first;
  if (!fRounds.empty()) {
    next = std::min(next, fRounds.front() - 1);
  }
  fNextDue.store(next, std::memory_order_relaxed);
}

void Judge::xAdvance(GK::GKMicros now) {
  while (!fRounds.empty() && fRounds.front() <= now) {
    const GK::GKMicros start = fRounds.front();
    fRounds.pop_front();
    xAdvanceInRound(start);
    xFinishAll(start);
    ++fRound;
    xReset(start);
  }
  xAdvanceInRound(now);
  xUpdateNextDue();
}

void Judge::xAdvanceInRound(GK::GKMicros now) {
  while (!fDue.empty() && fDue.begin()->first < now) {
    const Index index = fDue.begin()->second;
    fDue.erase(fDue.begin());
    if (!isDone(fWatched[index])) {
      xOnDue(index);
    }
  }
}

void Judge::xOnDue(Index index) {
  const Expectation& expectation = fExpectations[index];
  Watched& watched = fWatched[index];
  if (expectation.subject == Subject::Key) {
    if (fTicked.contains(index)) {
      xHoldKey(index, xEndOf(index));
    } else if (fOptions.isRealTime) {
      fAwaited.insert(index);
    } else {
      xBeginKey(index, xBeginOf(index), true);
    }
  } else if (expectation.isNever) {
    xHold(index, {}, xEndOf(index));
  } else if (watched.step == Step::Open && !fOptions.isAtOnce) {
    watched.step = Step::Missed;
    if (watched.before) {
      fDue.emplace(xEndOf(index) + xBeginOf(index) - watched.before->time, index);
    }
  } else {
    xFailOnNearest(index, std::nullopt);
  }
}

void Judge::onTime(GK::GKMicros time) {
  if (time <= fNextDue.load(std::memory_order_relaxed)) {
    return;
  }
  const std::lock_guard lock(fMutex);
  if (!fEnd && !fIsFinished) {
    xAdvance(time);
  }
}

void Judge::onNotice(const GK::GKNotice& notice) {
  const bool isEvent = messages::isRaise(notice);
  if (!isEvent && notice.kind != GK::GKNotice::Kind::Log) {
    return;
  }
  onTime(notice.time);
  const std::lock_guard lock(fMutex);
  if (fIsFinished) {
    return;
  }
  if (!isEvent) {
    for (const Index index : fLogs) {
      xOnLog(index, notice);
    }
    std::erase_if(fLogs, [this](Index index) { return isDone(fWatched[index]); });
    return;
  }
  if (fRaised.size() < kMostNames) {
    fRaised.insert(notice.name);
  }
  const auto found = fByEvent.find(notice.name);
  if (found != fByEvent.end()) {
    for (const Index index : found->second) {
      xOnEvent(index, notice);
    }
    std::erase_if(found->second, [this](Index index) { return isDone(fWatched[index]); });
  }
}

void Judge::xOnEvent(Index index, const GK::GKNotice& notice) {
  const Expectation& expectation = fExpectations[index];
  Watched& watched = fWatched[index];
  if (expectation.subject == Subject::Order) {
    if (!isDone(watched) && notice.name == expectation.order[watched.inOrder]) {
      watched.time = notice.time;
      if (++watched.inOrder == expectation.order.size()) {
        xHold(index, "the last at " + formats::momentText(notice.time) + " s", notice.time);
      }
    }
    return;
  }
  const bool isMeant = formats::marginOf(expectation.value, notice.value).has_value();
  if (expectation.subject == Subject::Count) {
    watched.count += isMeant ? 1 : 0;
    watched.time = isMeant ? notice.time : watched.time;
    if (fOptions.isAtOnce && expectation.atMost && watched.count > *expectation.atMost &&
        !isDone(watched)) {
      xFail(index, std::to_string(watched.count), notice.time);
    }
    return;
  }
  xOnSeen(index, {notice.time, notice.value, 0, {}}, isMeant,
          formats::distanceTo(expectation.value, notice.value));
}

void Judge::xOnLog(Index index, const GK::GKNotice& notice) {
  const Expectation& expectation = fExpectations[index];
  if (notice.text.find(expectation.name) != std::string::npos) {
    xOnSeen(index, {notice.time, {}, notice.level, notice.text},
            expectation.level == 0 || expectation.level == notice.level, formats::kNoMargin);
  }
}

std::string Judge::xSeenText(Index index, const Seen& seen) const {
  return fExpectations[index].subject == Subject::Log
             ? formats::loggedText(seen.text, seen.level, seen.time)
             : formats::raisedText(fExpectations[index].name, seen.value, seen.time);
}

void Judge::xOnSeen(Index index, Seen seen, bool isMeant, double distance) {
  const Expectation& expectation = fExpectations[index];
  Watched& watched = fWatched[index];
  if (isDone(watched)) {
    return;
  }
  // In real time what happened before the window may be seen a tick late as well.
  const bool isShifted = expectation.isNever && expectation.time.has_value();
  const GK::GKMicros begin = xBeginOf(index) + (isShifted ? xGrace() : 0);
  const GK::GKMicros end = xEndOf(index);
  const bool isOver = expectation.span && seen.time > end + xGrace();
  if (expectation.isNever) {
    if (isMeant && seen.time >= begin && !isOver) {
      xFail(index, xSeenText(index, seen), seen.time);
    }
  } else if (seen.time < begin) {
    (isMeant ? watched.before : watched.otherBefore) = std::move(seen);
  } else if (!isOver) {
    if (isMeant) {
      constexpr double perSecond = 1e6;
      xHold(index, xSeenText(index, seen), seen.time,
            static_cast<double>(std::max<GK::GKMicros>(end - seen.time, 0)) / perSecond);
    } else if (!watched.otherInside || distance < watched.otherDistance) {
      watched.otherInside = std::move(seen);
      watched.otherDistance = distance;
    }
  } else if (isMeant) {
    xFailOnNearest(index, std::move(seen));
  } else if (!watched.otherAfter) {
    watched.otherAfter = std::move(seen);
  }
}

void Judge::onTick(GK::GKMicros time, const GK::GKTask& /*task*/) {
  onTime(time);
  const std::lock_guard lock(fMutex);
  if (fEnd || fIsFinished || (fAwaited.empty() && fTicked.empty())) {
    return;
  }
  const std::vector<Index> ticked(fTicked.begin(), fTicked.end());
  for (const Index index : ticked) {
    xLookAtKey(index, time);
  }
  const std::vector<Index> awaited(fAwaited.begin(), fAwaited.end());
  for (const Index index : awaited) {
    // What was written just before may be seen by the next tick only.
    xBeginKey(index, time, std::exchange(fWatched[index].hasMissedFirst, true));
  }
  xUpdateNextDue();
}

void Judge::onTickTimes(const GK::GKTickTimes& times, const GK::GKTask& /*task*/) {
  const std::lock_guard lock(fMutex);
  fTick = times.pause;
}

void Judge::onCall(const std::string& label, std::uint64_t number) {
  const std::lock_guard lock(fMutex);
  const auto found = fByCall.find(label);
  if (found != fByCall.end()) {
    for (const Index index : found->second) {
      Watched& watched = fWatched[index];
      watched.call = watched.call == 0 ? number : watched.call;
    }
  }
}

void Judge::onAnswer(const Answer& answer) {
  const std::lock_guard lock(fMutex);
  const auto found = fByCall.find(answer.name);
  if (answer.number == 0 || fIsFinished || found == fByCall.end()) {
    return;
  }
  for (const Index index : found->second) {
    if (fWatched[index].call == answer.number && !isDone(fWatched[index])) {
      xJudgeAnswer(index, answer);
    }
  }
}

void Judge::onRound(GK::GKMicros start) {
  const std::lock_guard lock(fMutex);
  fRounds.push_back(start);
  fHasRounds = true;
  if (!fEnd) {
    xUpdateNextDue();
  }
}

void Judge::onEnd(GK::GKMicros end) {
  const std::lock_guard lock(fMutex);
  xAdvance(end);
  fIsCut = fRound > 1;
  xFinishKeys(end);
  fEnd = end;
  fNextDue.store(kNever, std::memory_order_relaxed);
}

void Judge::finish() {
  const std::lock_guard lock(fMutex);
  if (fIsFinished) {
    return;
  }
  xFinishAll(fEnd.value_or(0));
  fIsFinished = true;
  fNextDue.store(kNever, std::memory_order_relaxed);
}

} // namespace gk::runtime
