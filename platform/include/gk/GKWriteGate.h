#pragma once

#include "gk/GKApi.h"
#include "gk/GKObserver.h"
#include "gk/GKValue.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace GK {

/// Something that a service of the platform is about to store or to send.
struct GKWrite {
  enum class Kind : std::uint8_t {
    Data,         ///< a memory key gets a value
    Event,        ///< an event or micro-event is raised
    Declaration,  ///< an event gets an owner; there is no value
    Subscription, ///< a module wants to be called for an event; there is no value
    Order,        ///< an actuator's key gets what was ordered
    Resource      ///< a state's key is set
  };

  Kind kind = Kind::Data;
  GKCaller caller = GKCaller::Module;
  /// The memory key or the event.
  const std::string& name;
  /// Null where there is none.
  const GKValue* value = nullptr;
  /// The owner of a declaration, the module of a subscription; empty otherwise.
  std::string_view other = {};
  /// The key, or the event, is not there yet. Only told of what no module does.
  bool isNew = false;
};

/// Decides about everything that is stored or sent. The one place for rules about names, types and
/// amounts: the services ask it whoever calls them, by whatever way. Any thread.
class GK_API GKWriteGate {
public:
  struct Verdict {
    /// Why it must not be; empty when it may.
    std::string refusal;
    /// What is to be taken instead of the value, if something is.
    std::optional<GKValue> value;
  };

  virtual ~GKWriteGate();

  /// On the way of every raise: quick for what modules do.
  virtual Verdict admit(const GKWrite& write) = 0;

  /// Asks `gate`, which may be null, on behalf of a service's method. Returns the value to be
  /// taken: the given one, or `room` with another one. Raises `GKError` with the reason when it is
  /// refused.
  static const GKValue& ask(const std::shared_ptr<GKWriteGate>& gate, const char* service,
                            const char* method, const GKWrite& write, GKValue& room);
};

} // namespace GK
