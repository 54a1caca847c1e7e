#pragma once

#include "gk/GKMemoryPlace.h"
#include "gk/GKProxy.h"
#include "gk/GKValue.h"

#include <boost/shared_ptr.hpp>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

namespace GK {

class GKBroker;

/// Memory keys as a vector of floats: a module asks once for the places of its values and reads or
/// writes all of them in one call afterwards, without a look-up.
///
/// Works on the memory service of the own process only. An object belongs to one thread at a time;
/// each single value may be read and written by others at the same time. The places stay the memory
/// service's: an object must not be used after the service has gone.
class GKMemoryFastAccess {
public:
  GKMemoryFastAccess() = default;
  GKMemoryFastAccess(const GKMemoryFastAccess&) = delete;
  GKMemoryFastAccess& operator=(const GKMemoryFastAccess&) = delete;

  /// Connects to `keys`, in their order, instead of those connected before. Does nothing once
  /// access is stopped. `broker` must not be empty on the first call. `flag` has no effect.
  ///
  /// Raises `GKError` when there is no memory service or a key does not exist; the keys before that
  /// one are connected then, the others are not.
  void ConnectToVariables(const boost::shared_ptr<GKBroker>& broker,
                          const std::vector<std::string>& keys, bool flag);

  /// Makes `values` exactly as long as there are connected keys and fills it with their values. An
  /// object that was never connected empties it. Works on after a stop. Allocates only when
  /// `values` has to grow.
  void GetValues(std::vector<float>& values) const;

  /// Writes the first values to the connected keys. `values` must have one for each of them at
  /// least; more are ignored. Works on after a stop.
  void SetValues(const std::vector<float>& values);

  /// From now on no object of the process connects any more. There is no way back. May be called
  /// from any thread.
  static void StopAllAccess();

  /// Address of the value of `key`: the bits of a float, an int or a bool. Uses any broker of the
  /// process when `broker` is empty. `flag` has no effect. Raises `GKError` when the key or the
  /// memory service is not there.
  static void* getDataPtr(boost::shared_ptr<GKBroker> broker, const std::string& key, bool flag);

  /// Writes one key through the memory service, creating it when needed. Raises its `GKError`.
  void insertBuffer(const std::string& key, const GKValue& value);

  /// A copy of one key's value, read through the memory service. Raises its `GKError`.
  static std::unique_ptr<GKValue> getBuffer(const std::string& key);

  /// Tries the class on three keys of its own, "riri", "fifi" and "loulou". Raises `GKError` when
  /// `broker` is empty or the memory service is not there; otherwise the result is false.
  static bool InnerTest(const boost::shared_ptr<GKBroker>& broker);

private:
  /// Tests of several platforms in one process allow connecting again.
  friend struct GKMemoryFastAccessGate;

  static std::atomic<bool> static_bStopAllAccess;

  boost::shared_ptr<GKProxy> fMemoryProxy;
  /// What the proxy said at the last connection. For whoever owns the object: nothing here asks.
  bool fIsLocal = false;
  std::vector<GKMemoryPlace<float>> fPlaces;
};

} // namespace GK
