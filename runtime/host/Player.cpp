#include "runtime/host/Player.h"

#include "formats/recording/OpenRecording.h"
#include "formats/recording/ScenarioRecording.h"
#include "messages/text/Numbers.h"

#include <algorithm>
#include <utility>

namespace gk::runtime {

namespace {

/// Lines that are not in a file.
class FixedRecording : public formats::Recording {
public:
  explicit FixedRecording(std::vector<formats::Action> actions) : fActions(std::move(actions)) {
    xSetTime();
  }

  void play(formats::RecordingTarget& target) override {
    target.act(fActions[fPosition]);
    skip();
  }

  void skip() override {
    ++fPosition;
    xSetTime();
  }

  double progress() const noexcept override { return 1.0; }

private:
  void xSetTime() {
    fTime = fPosition < fActions.size() ? std::optional<GK::GKMicros>(0) : std::nullopt;
  }

  std::vector<formats::Action> fActions;
  std::size_t fPosition = 0;
};

} // namespace

void Player::add(std::vector<formats::Action> actions) {
  fRecordings.push_back(std::make_unique<FixedRecording>(std::move(actions)));
  xChooseNext();
}

void Player::open(std::vector<std::string> files, messages::KeyTypeOf keyTypeOf,
                  std::vector<std::string> companions) {
  fFiles = std::move(files);
  fCompanions = std::move(companions);
  fKeyTypeOf = std::move(keyTypeOf);
  xOpenFiles();
  xChooseNext();
}

void Player::xOpenFiles() {
  for (const std::string& companion : fCompanions) {
    fRecordings.push_back(
        std::make_unique<formats::ScenarioRecording>(companion, fKeyTypeOf, true));
  }
  for (const std::string& file : fFiles) {
    fRecordings.push_back(formats::openRecording(file, fKeyTypeOf));
  }
}

std::vector<formats::Action> Player::preload() const {
  std::vector<formats::Action> actions;
  for (const auto& recording : fRecordings) {
    actions.insert(actions.end(), recording->preload().begin(), recording->preload().end());
  }
  return actions;
}

std::optional<GK::GKMicros> Player::next() {
  return fIsStopped ? std::nullopt : fNext;
}

void Player::apply() {
  fLastTime = *fNext;
  fCurrent->play(fTarget);
  xChooseNext();
  if (!fNext && fAtEnd) {
    fAtEnd(fLastTime);
  }
}

void Player::xChooseNext() {
  const auto choose = [this] {
    fCurrent = nullptr;
    for (const auto& recording : fRecordings) {
      if (recording->time() && (fCurrent == nullptr || *recording->time() < *fCurrent->time())) {
        fCurrent = recording.get();
      }
    }
  };
  choose();
  if (fCurrent == nullptr && fIsLoop && !fIsStopped) {
    fRoundStart = fLastTime + kLoopGap;
    if (std::exchange(fIsFirstRound, false)) {
      fProblems = problems();
      fIsDamaged = !isComplete();
    }
    if (fOnRound) {
      fOnRound(fRoundStart);
    }
    fRecordings.clear();
    xOpenFiles();
    choose();
  }
  fNext = fCurrent != nullptr ? std::optional(fRoundStart + *fCurrent->time()) : std::nullopt;
}

double Player::progress() const noexcept {
  double progress = 1.0;
  for (const auto& recording : fRecordings) {
    progress = std::min(progress, recording->progress());
  }
  return progress;
}

std::vector<std::string> Player::problems() const {
  if (!fIsFirstRound) {
    return fProblems;
  }
  std::vector<std::string> all;
  for (const auto& recording : fRecordings) {
    for (std::string& problem : recording->problems()) {
      all.push_back(std::move(problem));
    }
  }
  return all;
}

std::vector<std::string> Player::hints() const {
  std::vector<std::string> hints;
  // The files stand last, behind the lines that were added.
  const std::size_t first = fRecordings.size() - fFiles.size();
  for (std::size_t i = 0; i < fFiles.size(); ++i) {
    const std::optional<GK::GKMicros> time = fRecordings[first + i]->time();
    if (time && *time > formats::kLatestBeginning) {
      std::string hint = fFiles[i] + ": its first time is ";
      messages::appendSeconds(hint, *time);
      hints.push_back(hint + " s: times count from the start of the run, and nothing happens until "
                             "then; times of the wall clock have to be made so");
    }
  }
  return hints;
}

bool Player::isComplete() const noexcept {
  return !fIsDamaged && std::all_of(fRecordings.begin(), fRecordings.end(),
                                    [](const auto& recording) { return recording->isComplete(); });
}

void Player::checkRest() {
  for (const auto& recording : fRecordings) {
    while (recording->time()) {
      recording->skip();
    }
  }
}

} // namespace gk::runtime
