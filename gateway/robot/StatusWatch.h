#pragma once

#include "gateway/robot/CallRunner.h"
#include "gateway/robot/ModuleStatus.h"
#include "gateway/robot/Robot.h"
#include "gk/GKTime.h"

#include <memory>
#include <string>
#include <vector>

namespace gk::gateway {

/// Asks the modules that have a bound method `status` how they are, about once a second, each in a
/// task of its own: neither a tick nor whoever reads the answers ever waits for one. A method that
/// raises, takes too long or returns something else is told of in the log once, tells nothing more,
/// and is left alone for a while.
///
/// Modules are asked in real time alone: on a virtual clock it would be a part of the run.
class StatusWatch {
public:
  /// From one question to the next, in microseconds of the host's time.
  static constexpr GK::GKMicros kPeriod = 1'000'000;
  /// An answer that takes longer is none.
  static constexpr GK::GKMicros kPatience = 1'000'000;
  /// How long a module is left alone that could not be asked.
  static constexpr GK::GKMicros kPause = 60'000'000;

  /// `runner` must outlive the tasks.
  explicit StatusWatch(CallRunner& runner);
  ~StatusWatch();
  StatusWatch(const StatusWatch&) = delete;
  StatusWatch& operator=(const StatusWatch&) = delete;

  /// Whose modules are asked from now on; null for nobody's. For the thread of `refresh`.
  void open(std::shared_ptr<const Robot> robot) { fRobot = std::move(robot); }
  bool isOpen() const noexcept { return fRobot != nullptr; }

  /// Asks whoever is due, and returns at once. `now` is the host's time. For one thread.
  void refresh(GK::GKMicros now);

  /// What is known, by module. Any thread.
  std::vector<StatusRow> rows() const;

private:
  struct Answers;

  void xAsk(const boost::shared_ptr<GK::GKModuleCore>& module, GK::GKMicros now);

  CallRunner& fRunner;
  std::shared_ptr<const Robot> fRobot;
  /// A task that is late still finds where to put its answer.
  std::shared_ptr<Answers> fAnswers;
};

} // namespace gk::gateway
