#pragma once

#include "gk/GKMemoryStore.h"
#include "gk/GKValue.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace gk::gateway {

/// A memory key that clients watch, and its value when it was last looked at.
class WatchedKey {
public:
  explicit WatchedKey(std::string name) : fName(std::move(name)) {}

  const std::string& name() const noexcept { return fName; }
  /// Invalid while there is no such key.
  const GK::GKValue& value() const noexcept { return fValue; }
  /// 0 while there has been no such key, from then on one more with each change.
  std::uint64_t version() const noexcept { return fVersion; }

private:
  friend class WatchedKeys;

  void xLook(const GK::GKMemoryStore& store);

  const std::string fName;
  /// A cell never moves: one look-up is enough, once the key is there.
  const GK::GKMemoryCell* fCell = nullptr;
  GK::GKValue fValue;
  std::uint64_t fVersion = 0;
};

/// The keys that clients watch, each looked at once for all of them: what that costs in time and
/// memory does not grow with the number of clients. For one thread.
class WatchedKeys {
public:
  /// From now on the keys are those of `store`; null for none.
  void open(std::shared_ptr<const GK::GKMemoryStore> store);

  /// The key of this name, looked at until everybody has let go of it. This must outlive it.
  std::shared_ptr<const WatchedKey> watch(const std::string& name);

  /// Looks at all keys.
  void refresh();

private:
  std::shared_ptr<const GK::GKMemoryStore> fStore;
  std::map<std::string, std::weak_ptr<WatchedKey>> fKeys;
};

} // namespace gk::gateway
