#pragma once

#include "gk/GKBroker.h"
#include "gk/GKModule.h"
#include "gk/GKValue.h"

#include <memory>
#include <mutex>

namespace gk::ros2 {

class Publisher;

/// Module "GKRos2": lets programs of ROS 2 see the robot. It only tells: nothing can be asked for
/// or changed by way of DDS. In virtual time it does nothing.
class GKRos2 : public GK::GKModule {
public:
  explicit GKRos2(const boost::shared_ptr<GK::GKBroker>& broker);
  ~GKRos2() override;

  /// Raises `GKError` with one line when a setting or a variable of the environment is wrong, or
  /// DDS has no place for us.
  void init() override;
  void exit() override;

  /// What was published, as an array of [name, unit, value, level (0 ok, 1 warning, 2 error),
  /// text].
  GK::GKValue status() const;

private:
  /// Calls come on any thread.
  mutable std::mutex fMutex;
  std::unique_ptr<Publisher> fPublisher;
};

} // namespace gk::ros2
