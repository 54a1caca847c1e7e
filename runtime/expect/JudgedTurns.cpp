#include "runtime/expect/JudgedTurns.h"

#include <optional>
#include <utility>

namespace gk::runtime {

namespace {

class JudgedTurns final : public GK::GKTurnObserver {
public:
  JudgedTurns(boost::shared_ptr<Judge> judge, std::shared_ptr<GK::GKTurnObserver> next)
      : fJudge(std::move(judge)), fNext(std::move(next)) {}

  void onTurn(const GK::GKTurn& turn) override {
    fJudge->onTime(turn.time);
    if (fNext != nullptr) {
      fNext->onTurn(turn);
    }
  }
  void onTask(std::uint64_t number, const GK::GKTask& task) override {
    if (fNext != nullptr) {
      fNext->onTask(number, task);
    }
  }
  void onOverlap() override {
    if (fNext != nullptr) {
      fNext->onOverlap();
    }
  }

private:
  boost::shared_ptr<Judge> fJudge;
  std::shared_ptr<GK::GKTurnObserver> fNext;
};

class JudgedSchedule final : public GK::GKSchedule {
public:
  JudgedSchedule(boost::shared_ptr<Judge> judge, std::shared_ptr<GK::GKSchedule> turns)
      : fJudge(std::move(judge)), fTurns(std::move(turns)) {}

  std::optional<GK::GKTurn> next() override {
    const std::optional<GK::GKTurn> turn = fTurns->next();
    if (turn) {
      fTime = turn->time;
    }
    return turn;
  }
  void begin() override {
    fJudge->onTime(fTime);
    fTurns->begin();
  }
  std::optional<std::uint64_t> started(const GK::GKTask& task) override {
    return fTurns->started(task);
  }

private:
  boost::shared_ptr<Judge> fJudge;
  std::shared_ptr<GK::GKSchedule> fTurns;
  GK::GKMicros fTime = 0;
};

} // namespace

std::shared_ptr<GK::GKTurnObserver> judgedTurns(boost::shared_ptr<Judge> judge,
                                                std::shared_ptr<GK::GKTurnObserver> next) {
  return judge == nullptr ? std::move(next)
                          : std::make_shared<JudgedTurns>(std::move(judge), std::move(next));
}

std::shared_ptr<GK::GKSchedule> judgedSchedule(boost::shared_ptr<Judge> judge,
                                               std::shared_ptr<GK::GKSchedule> turns) {
  return judge == nullptr ? std::move(turns)
                          : std::make_shared<JudgedSchedule>(std::move(judge), std::move(turns));
}

} // namespace gk::runtime
