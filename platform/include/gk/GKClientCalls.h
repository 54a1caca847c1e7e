#pragma once

#include "gk/GKApi.h"

#include <functional>
#include <memory>
#include <string>

namespace GK {

/// How a call of a client ended, as JSON texts.
struct GKClientAnswer {
  /// "null" for a method without result; empty when there is an error.
  std::string result;
  /// A code of JSON-RPC 2.0, or one of the host's; 0 for none.
  int code = 0;
  std::string message;
  /// What else is known of the error; empty for nothing.
  std::string data;

  bool isError() const noexcept { return code != 0; }
};

/// Calls of bound methods as from a client of the host: its checks, limits and wording apply, and a
/// recording of the run holds them. For module libraries by which programs elsewhere reach the
/// robot.
///
/// The host installs how. All operations may be called from any thread.
class GK_API GKClientCalls {
public:
  using Done = std::function<void(GKClientAnswer answer)>;

  virtual ~GKClientCalls();

  /// Calls a method. `params`: a JSON array, or an object with the parameters' names; empty for
  /// none. `done` is called once: before this returns, or later on a thread of the platform. It
  /// must be quick, and may be called after the end of the module that asked.
  virtual void call(const std::string& module, const std::string& method, const std::string& params,
                    Done done) = 0;

  /// The host's; null where clients cannot call anything.
  static std::shared_ptr<GKClientCalls> instance();
  /// For hosts: from now on this is how; null for not at all.
  static void install(std::shared_ptr<GKClientCalls> calls);
};

} // namespace GK
