#include "app/session/Judgement.h"

#include "app/options/Command.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <tuple>
#include <utility>

namespace gk::app {

namespace {

class ErrorOutlet final : public runtime::Outlet {
public:
  void write(std::string_view line) override { fmt::print(stderr, "{}", line); }
  void flush() override {}
};

} // namespace

Judgement::Judgement(const JudgeView& view, runtime::HostOptions& host) : fView(view) {
  if (view.expectations.empty()) {
    return;
  }
  if (!host.isVirtual) {
    fQueue.emplace(std::make_unique<ErrorOutlet>());
  }
  host.judge = boost::make_shared<runtime::Judge>(
      view.expectations, runtime::JudgeOptions{!host.isVirtual, view.isAtOnce},
      [this](runtime::Verdict verdict) { xTake(std::move(verdict)); });
}

Judgement::~Judgement() = default;

void Judgement::xTake(runtime::Verdict verdict) {
  if (fView.onVerdict) {
    fView.onVerdict(verdict);
  }
  if (verdict.holds) {
    return;
  }
  ++fFailures;
  if (fView.isAtOnce || fHeld.size() == kMostHeld) {
    xTell(verdict);
  } else {
    fHeld.push_back(std::move(verdict));
  }
}

void Judgement::xTell(const runtime::Verdict& verdict) {
  const std::string line = runtime::verdictLine(verdict) + "\n";
  if (fQueue) {
    fQueue->write(line);
  } else {
    fmt::print(stderr, "{}", line);
  }
}

int Judgement::finish() {
  std::ranges::stable_sort(fHeld, {}, [](const runtime::Verdict& verdict) {
    return std::tuple(verdict.round, verdict.index);
  });
  for (const runtime::Verdict& verdict : std::exchange(fHeld, {})) {
    xTell(verdict);
  }
  if (fQueue) {
    fQueue->flush();
  }
  return fFailures > 0 ? kExpectationFailed : kSuccess;
}

} // namespace gk::app
