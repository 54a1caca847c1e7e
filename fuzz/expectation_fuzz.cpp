#include "formats/recording/TestFile.h"
#include "formats/text/InputError.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Require.h"
#include "gk/GKClock.h"
#include "runtime/expect/Judge.h"

#include <string>
#include <vector>

// A file of expectations of any bytes, held against a short run that has what they are about.

namespace {

using gk::formats::Expectation;

/// Raises what each expectation asks for, in its window and outside, and ticks.
void play(gk::runtime::Judge& judge, const std::vector<Expectation>& expectations) {
  std::uint64_t calls = 0;
  for (int step = 0; step < 4; ++step) {
    const GK::GKMicros now = step * GK::GKMicros{1'000'000};
    judge.onTime(now);
    for (const Expectation& expectation : expectations) {
      GK::GKNotice notice;
      notice.kind = expectation.subject == Expectation::Subject::Log ? GK::GKNotice::Kind::Log
                                                                     : GK::GKNotice::Kind::Event;
      notice.time = now;
      notice.level = step + 1;
      notice.name = expectation.order.empty() ? expectation.name : expectation.order.front();
      notice.text = expectation.name;
      notice.value = expectation.value.value.value_or(GK::GKValue(step));
      judge.onNotice(notice);
      if (expectation.subject == Expectation::Subject::Call) {
        judge.onCall(expectation.name, ++calls);
        gk::runtime::Answer answer;
        answer.number = calls;
        answer.name = expectation.name;
        answer.value = notice.value;
        answer.hasValue = true;
        judge.onAnswer(answer);
      }
    }
    judge.onTick(now, GK::GKTask{"Module", "run"});
  }
}

void judge(const std::vector<Expectation>& expectations, bool isRealTime, bool isLoop) {
  std::vector<int> told(expectations.size());
  gk::runtime::Judge sut(expectations, {.isRealTime = isRealTime, .isAtOnce = isRealTime},
                         [&told](const gk::runtime::Verdict& verdict) {
                           ++told.at(verdict.index);
                           gk::fuzz::require(verdict.holds || verdict.text.starts_with("expected "),
                                             "a failure says what was expected");
                           gk::fuzz::require(verdictLine(verdict).find('\n') == std::string::npos,
                                             "a verdict is one line");
                         });
  sut.setMemory([](const std::string& key) {
    return key.size() % 2 == 0 ? std::optional<GK::GKValue>(1.0F) : std::nullopt;
  });
  if (isLoop) {
    sut.onRound(2'500'000);
  }
  play(sut, expectations);
  sut.onEnd(3'000'000);
  sut.finish();
  for (const int times : told) {
    // The second round is cut short.
    gk::fuzz::require(times == 1 || (isLoop && times == 2), "each is judged once a round");
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const gk::fuzz::MemoryFile file;
  constexpr std::size_t most = 8192; // Each may be about the same event.
  if (size > most || !file.write({data, size})) {
    return 0;
  }
  for (const bool isCompanion : {false, true}) {
    try {
      const auto found = gk::formats::readTestFile(file.path(), isCompanion);
      judge(found.expectations, false, false);
      judge(found.expectations, true, false);
      judge(found.expectations, false, true);
    } catch (const gk::formats::InputError& error) {
      gk::fuzz::require(std::string(error.what()).find('\n') == std::string::npos,
                        "an error is one line");
      gk::fuzz::require(error.getLine() >= 1, "lines count from 1");
    }
  }
  return 0;
}
