#include "formats/lines/ExpectationText.h"
#include "formats/text/NearestNames.h"
#include "runtime/expect/Judge.h"

#include <algorithm>
#include <string_view>
#include <utility>

/// What is said of each expectation in the end.
namespace gk::runtime {

namespace {

using Kind = formats::Expectation::Subject;

/// The one that is nearer to a window.
const Seen* nearerOf(const std::optional<Seen>& before, GK::GKMicros begin,
                     const std::optional<Seen>& after, GK::GKMicros end) {
  if (!before || !after) {
    return before ? &*before : after ? &*after : nullptr;
  }
  return begin - before->time <= after->time - end ? &*before : &*after;
}

std::string errorText(const Answer& answer) {
  return answer.error != nullptr ? answer.error->toString() : answer.text;
}

} // namespace

void Judge::xFailOnNearest(Index index, std::optional<Seen> after) {
  const formats::Expectation& expectation = fExpectations[index];
  const Watched& watched = fWatched[index];
  const Seen* nearest = watched.otherInside ? &*watched.otherInside : nullptr;
  if (nearest == nullptr) {
    nearest = nearerOf(watched.before, xBeginOf(index), after, xEndOf(index));
  }
  if (nearest == nullptr) {
    nearest = nearerOf(watched.otherBefore, xBeginOf(index), watched.otherAfter, xEndOf(index));
  }
  if (nearest != nullptr) {
    xFail(index, xSeenText(index, *nearest), nearest->time);
  } else if (expectation.subject == Kind::Log) {
    xFail(index, "it was never logged", xBeginOf(index));
  } else {
    xFail(index, "it was never raised" + xDidYouMean(expectation.name), xBeginOf(index));
  }
}

std::string Judge::xDidYouMean(const std::string& name) const {
  if (fRaised.contains(name)) {
    return {}; // in another round of a loop
  }
  return formats::didYouMean(
      formats::nearestNames(name, std::vector<std::string>(fRaised.begin(), fRaised.end())));
}

void Judge::xBeginKey(Index index, GK::GKMicros time, bool isLast) {
  if (!isLast && !xFits(index, xRead(index))) {
    return;
  }
  fAwaited.erase(index);
  xLookAtKey(index, time);
  if (fWatched[index].step == Watched::Step::Done) {
    return;
  }
  if (!fExpectations[index].span || xEndOf(index) < time) {
    xHoldKey(index, time);
  } else {
    fTicked.insert(index);
    fDue.emplace(xEndOf(index), index);
  }
}

std::optional<GK::GKValue> Judge::xRead(Index index) const {
  return fReadKey ? fReadKey(fExpectations[index].name) : std::nullopt;
}

std::optional<double> Judge::xFits(Index index, const std::optional<GK::GKValue>& value) const {
  const formats::Expectation& expectation = fExpectations[index];
  if (expectation.isAbsent || !value) {
    return expectation.isAbsent && !value ? std::optional(formats::kNoMargin) : std::nullopt;
  }
  return formats::marginOf(expectation.value, *value);
}

void Judge::xLookAtKey(Index index, GK::GKMicros time) {
  const std::optional<GK::GKValue> value = xRead(index);
  if (const std::optional<double> margin = xFits(index, value)) {
    fWatched[index].margin = std::min(fWatched[index].margin, *margin);
    return;
  }
  const bool isMoment = !fExpectations[index].span.has_value();
  xFail(index,
        (value ? "it was " + formats::valueText(*value) : std::string("there was no such key")) +
            (isMoment ? std::string() : " at " + formats::momentText(time) + " s"),
        time);
}

void Judge::xHoldKey(Index index, GK::GKMicros time) {
  xHold(index, {}, time, std::nullopt, fWatched[index].margin);
}

void Judge::xJudgeAnswer(Index index, const Answer& answer) {
  const formats::Expectation& expectation = fExpectations[index];
  const bool isError =
      answer.kind == Answer::Kind::Error || answer.kind == Answer::Kind::OtherError;
  if (isError != expectation.error.has_value()) {
    if (isError) {
      xFail(index, "it failed: " + errorText(answer), answer.time);
    } else {
      xFail(index,
            answer.hasValue ? "it returned " + formats::valueText(answer.value) : "it returned",
            answer.time);
    }
    return;
  }
  const std::string when = " at " + formats::momentText(answer.time) + " s";
  if (isError) {
    const std::string text = errorText(answer);
    if (text.find(*expectation.error) == std::string::npos) {
      xFail(index, "it failed: " + text, answer.time);
    } else {
      xHold(index, text + when, answer.time);
    }
    return;
  }
  const std::optional<double> margin = answer.hasValue || expectation.value.isAny()
                                           ? formats::marginOf(expectation.value, answer.value)
                                           : std::nullopt;
  if (!margin) {
    xFail(index,
          answer.hasValue ? "it returned " + formats::valueText(answer.value)
                          : std::string("it returned nothing"),
          answer.time);
    return;
  }
  xHold(index, (answer.hasValue ? formats::valueText(answer.value) : "nothing") + when, answer.time,
        std::nullopt, *margin);
}

void Judge::xFinishKeys(GK::GKMicros end) {
  for (Index i = 0; i < fExpectations.size(); ++i) {
    if (fExpectations[i].subject == Kind::Key && fWatched[i].step != Watched::Step::Done) {
      xFinishKey(i, end);
    }
  }
}

void Judge::xFinishAll(GK::GKMicros end) {
  for (Index i = 0; i < fExpectations.size(); ++i) {
    if (fWatched[i].step != Watched::Step::Done) {
      xFinish(i, end);
    }
  }
}

void Judge::xFinish(Index index, GK::GKMicros end) {
  const formats::Expectation& expectation = fExpectations[index];
  const Watched& watched = fWatched[index];
  if (fIsCut && (expectation.subject == Kind::Order || expectation.subject == Kind::Call)) {
    xLeaveOpen(index);
    return;
  }
  switch (expectation.subject) {
  case Kind::Count:
    xFinishCount(index, end);
    return;
  case Kind::Order: {
    const std::string& missing = expectation.order[watched.inOrder];
    xFail(index,
          watched.inOrder == 0
              ? "no " + missing
              : "no " + missing + " after " + expectation.order[watched.inOrder - 1] + " at " +
                    formats::momentText(watched.time) + " s",
          watched.time);
    return;
  }
  case Kind::Call:
    xFail(index, watched.call == 0 ? "it was never made" : "it never returned", end);
    return;
  case Kind::Key:
    xFinishKey(index, end);
    return;
  default:
    break;
  }
  if (expectation.isNever) {
    xHold(index, {}, end);
  } else if (watched.step == Watched::Step::Open && xEndOf(index) > end) {
    xFailOnEnd(index, end);
  } else {
    xFailOnNearest(index, std::nullopt);
  }
}

void Judge::xFinishKey(Index index, GK::GKMicros end) {
  if (!fTicked.contains(index)) {
    if (xBeginOf(index) > end) {
      xFailOnEnd(index, end);
      return;
    }
    xBeginKey(index, xBeginOf(index), true);
  }
  if (fWatched[index].step != Watched::Step::Done) {
    if (xEndOf(index) > end) {
      xFailOnEnd(index, end);
    } else {
      xHoldKey(index, end);
    }
  }
}

void Judge::xFinishCount(Index index, GK::GKMicros end) {
  const formats::Expectation& expectation = fExpectations[index];
  const std::uint64_t count = fWatched[index].count;
  const auto number = static_cast<double>(count);
  double margin = formats::kNoMargin;
  if (expectation.atLeast) {
    margin = std::min(margin, number - *expectation.atLeast);
  }
  if (expectation.atMost) {
    margin = std::min(margin, *expectation.atMost - number);
  }
  if (fIsCut && !(expectation.atMost && count > *expectation.atMost)) {
    xLeaveOpen(index);
  } else if (margin < 0.0) {
    xFail(index, std::to_string(count) + (count == 0 ? xDidYouMean(expectation.name) : ""),
          count > 0 ? fWatched[index].time : end);
  } else {
    xHold(index, std::to_string(count), end, std::nullopt, margin);
  }
}

void Judge::xLeaveOpen(Index index) {
  fWatched[index].step = Watched::Step::Done;
  fTicked.erase(index);
  fAwaited.erase(index);
}

void Judge::xFailOnEnd(Index index, GK::GKMicros end) {
  if (fIsCut) {
    xLeaveOpen(index);
    return;
  }
  xFail(index,
        std::string(fHasRounds ? "the round" : "the run") + " ended at " +
            formats::momentText(end) + " s",
        end);
}

void Judge::xFail(Index index, const std::string& but, GK::GKMicros time) {
  xTell(index, false,
        "expected " + formats::expectedText(fExpectations[index], fStart) + ", but " + but, time,
        std::nullopt, formats::kNoMargin);
}

void Judge::xHold(Index index, const std::string& how, GK::GKMicros time,
                  std::optional<double> secondsLeft, double margin) {
  xTell(index, true,
        formats::expectedText(fExpectations[index], fStart) + (how.empty() ? "" : ": " + how), time,
        secondsLeft, margin);
}

void Judge::xTell(Index index, bool holds, std::string text, GK::GKMicros time,
                  std::optional<double> secondsLeft, double margin) {
  fWatched[index].step = Watched::Step::Done;
  fTicked.erase(index);
  fAwaited.erase(index);
  Verdict verdict;
  verdict.index = index;
  verdict.file = fExpectations[index].file;
  verdict.line = fExpectations[index].line;
  verdict.holds = holds;
  verdict.text = std::move(text);
  if (fRound > 1) {
    verdict.text += " (round " + std::to_string(fRound) + ")";
  }
  verdict.secondsLeft = secondsLeft;
  if (margin < formats::kNoMargin) {
    verdict.margin = margin;
  }
  verdict.time = time;
  verdict.round = fRound;
  fReceive(std::move(verdict));
}

} // namespace gk::runtime
