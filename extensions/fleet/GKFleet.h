#pragma once

#include "gk/GKModule.h"

#include <memory>
#include <string>

namespace gk::fleet {
class Bridge;
}

namespace GK {

/// Tells a fleet's broker what this robot raises and how it is, and carries requests out that come
/// from there. What it does is said by the memory keys below "Settings/GKFleet/".
class GKFleet : public GKModule {
public:
  explicit GKFleet(const boost::shared_ptr<GKBroker>& broker);
  ~GKFleet() override;

  /// Reads the settings and starts. Raises `GKError` with the setting's name where one is of no
  /// use, and when another process has the outbox. In virtual time it does nothing at all: nobody
  /// who listens lives in it.
  void init() override;
  void exit() override;

  /// How it goes: an array of [name, unit, value, level, text], the level 0 for fine, 1 for a
  /// warning and 2 for an error, whose text says what is the matter. Any thread.
  GKValue status() const;

private:
  std::unique_ptr<gk::fleet::Bridge> fBridge;
};

} // namespace GK
