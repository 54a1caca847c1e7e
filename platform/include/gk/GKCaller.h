#pragma once

#include "gk/GKApi.h"
#include "gk/GKObserver.h"

namespace GK {

/// Says on whose behalf the calling thread enters a bound method, until it goes out of scope.
///
/// Services ask for the innermost one. Without any, it is a module that calls.
class GK_API GKCallerScope {
public:
  explicit GKCallerScope(GKCaller caller) noexcept;
  ~GKCallerScope();
  GKCallerScope(const GKCallerScope&) = delete;
  GKCallerScope& operator=(const GKCallerScope&) = delete;

  static GKCaller current() noexcept;

private:
  GKCaller fFormer;
};

} // namespace GK
