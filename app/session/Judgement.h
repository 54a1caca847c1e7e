#pragma once

#include "formats/lines/Expectation.h"
#include "runtime/expect/Judge.h"
#include "runtime/host/Host.h"
#include "runtime/output/Outlet.h"

#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace gk::app {

/// How a run is judged and who learns of it.
struct JudgeView {
  std::vector<formats::Expectation> expectations;
  /// Failures are told as soon as they are certain, not at the end.
  bool isAtOnce = false;
  /// Takes what became of each; may be null.
  std::function<void(const runtime::Verdict&)> onVerdict;
};

/// The judgement of a run, told on standard error; nothing at all where nothing is expected.
class Judgement {
public:
  /// Has `host` show the run to the judge. `view` must stay valid as long as this object.
  Judgement(const JudgeView& view, runtime::HostOptions& host);
  ~Judgement();
  Judgement(const Judgement&) = delete;
  Judgement& operator=(const Judgement&) = delete;

  /// After the shutdown: tells what does not hold, a line each. Returns the exit code.
  int finish();

private:
  /// More of them are told when they come.
  static constexpr std::size_t kMostHeld = 10'000;

  void xTake(runtime::Verdict verdict);
  void xTell(const runtime::Verdict& verdict);

  const JudgeView& fView;
  std::vector<runtime::Verdict> fHeld;
  std::size_t fFailures = 0;
  /// In real time nobody waits for standard error.
  std::optional<runtime::QueuedOutlet> fQueue;
};

} // namespace gk::app
