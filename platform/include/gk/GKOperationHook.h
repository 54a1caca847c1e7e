#pragma once

#include "gk/GKApi.h"

#include <memory>
#include <string_view>

namespace GK {

/// The platform's operations that modules use and that can be made to fail.
enum class GKOperation : unsigned char {
  RaiseEvent,
  RaiseMicroEvent,
  InsertData,
  DeclareEvent,
  GetData,
  GetDataPtr,
  GetProxy,
  DcmSet,
  EnableStateResource
};

/// Stands before each operation that a module asks the platform for. Test benches install one to
/// make operations fail; there is none in general, and then it costs one comparison.
class GK_API GKOperationHook {
public:
  virtual ~GKOperationHook();

  /// `key`: the event, memory key or module name; empty where there is none. An exception leaves
  /// from the operation, which does nothing else. Called on any thread.
  virtual void before(GKOperation operation, std::string_view key) = 0;

  /// Installs a hook for the whole process; null removes it. Only while no module runs.
  static void install(std::shared_ptr<GKOperationHook> hook);

  /// Called by the operations.
  static void check(GKOperation operation, std::string_view key);
};

} // namespace GK
