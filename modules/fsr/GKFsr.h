#pragma once

#include "gk/GKMemoryFastAccess.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"

#include <boost/circular_buffer.hpp>
#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

namespace GK {

/// Tells from the force sensors under the feet which foot touches the ground and how much weight it
/// carries.
///
/// The sensor loop drives it through `updateFootContact`. It publishes a moving average over the
/// last ten readings. A robot without legs, without force sensors or without memory service keeps
/// its initial outputs: contact everywhere, no weight.
class GKFsr : public GKModule {
public:
  /// Micro-event raised when the overall contact changes (bool).
  static const std::string fExtractorKeyName;
  /// Memory keys written each tick: contacts as 1.0 or 0.0, average weights in kg.
  static const std::string fFastAcessKeyNameFootContact;
  static const std::string fFastAcessKeyNameLeftContact;
  static const std::string fFastAcessKeyNameRightContact;
  static const std::string fFastAcessKeyNameLeftWeight;
  static const std::string fFastAcessKeyNameRightWeight;
  /// Readings that an average is taken over.
  static constexpr int fWeightsBufferSize = 10;

  /// Reads the robot's configuration, publishes the initial outputs and connects to memory. Raises
  /// `GKError` when the memory service is there and refuses an output.
  explicit GKFsr(const boost::shared_ptr<GKBroker>& broker);
  /// Stops fast access for all modules of the library.
  ~GKFsr() override;

  /// One tick. Sensor loop's thread only. A refused event is logged and not raised again.
  void updateFootContact();

private:
  /// Finds out whether the robot has legs and force sensors.
  void xCheckConfiguration();
  void xConnectToMemory();
  void xDeconnectToMemory();

  /// Weight above which a foot, or the pair, touches the ground, kg.
  static constexpr float fContactThreshold = 0.4F;
  /// Latest readings [left, right], kg.
  std::vector<float> fValues;
  /// Last readings, oldest first, kg.
  boost::circular_buffer<float> fLeftWeights;
  boost::circular_buffer<float> fRightWeights;
  /// Overall contact announced last.
  bool fLastFootContact = true;
  /// False where there is nothing to measure or nowhere to put it; settled at construction.
  bool fFsrAvailable = true;
  bool fRaiseEvent = true;
  /// Empty without memory service.
  boost::shared_ptr<GKMemoryProxy> fMemoryProxy;
  boost::shared_ptr<GKMemoryFastAccess> fMemoryFastAccessIn;
  boost::shared_ptr<GKMemoryFastAccess> fMemoryFastAccessOut;
  /// [overall contact, left contact, right contact, left weight, right weight].
  std::vector<float> fOutputValues;
};

} // namespace GK
