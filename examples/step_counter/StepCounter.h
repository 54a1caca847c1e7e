#pragma once

#include "gk/GKExtractor.h"
#include "gk/GKMemoryFastAccess.h"
#include "gk/GKMemoryProxy.h"

#include <array>
#include <atomic>
#include <vector>

/// Counts steps: raises "StepTaken" with the number of steps so far each time that a foot which was
/// in the air carries the robot again. Works while somebody is subscribed, by default 50 times a
/// second; whoever subscribes to the event is subscribed here as well.
class StepCounter : public GK::GKExtractor {
public:
  explicit StepCounter(const boost::shared_ptr<GK::GKBroker>& broker);

  void init() override;

  /// Number of steps so far. Any thread.
  int getSteps() const;

  /// The loop of this number: ticks until there is another one, or nobody is subscribed.
  void run(const int& number);

  /// One look at the feet. Allocates nothing and looks up no name. For the loop, and for tests.
  void tick();

protected:
  void xStartDetection(int period, float precision) override;
  void xUpdateParameters(int period, float precision) override;
  void xStopDetection() override;
  int getDefaultPeriod() override;

private:
  boost::shared_ptr<GK::GKMemoryProxy> fMemory;
  GK::GKMemoryFastAccess fFeet;
  /// Weights of the left and the right foot, kg.
  std::vector<float> fWeights;
  std::array<bool, 2> fIsInTheAir{};
  std::atomic<int> fSteps{0};
  /// Milliseconds.
  std::atomic<int> fPeriod{0};
  /// Which loop is to go on; it changes with each start and each stop.
  std::atomic<int> fLoop{0};
};
