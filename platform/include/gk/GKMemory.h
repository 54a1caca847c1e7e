#pragma once

#include "gk/GKMemoryStore.h"
#include "gk/GKModule.h"
#include "gk/GKObserver.h"
#include "gk/GKOperationHook.h"
#include "gk/GKWriteGate.h"

#include <boost/shared_ptr.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace GK {

struct GKMemoryState;

/// What is known of an event.
struct GKEventInfo {
  std::string name;
  /// Module that declared it; empty when it was only raised.
  std::string owner;
  /// How often it was raised, micro-events included.
  std::uint64_t count = 0;
  /// Value and time of the last raise; invalid and 0 before. The time (microseconds since the
  /// start) is the one that observers saw; where there were none it may be a few milliseconds old.
  GKValue value;
  GKMicros time = 0;
};

/// The memory service, module "GKMemory": named values and named events.
///
/// Bound methods: `getData`, `insertData`, `declareEvent`, `raiseEvent`, `raiseMicroEvent`,
/// `getExtractorEvent`, `subscribeToEvent`, `unsubscribeToEvent`, `getDataList`, `getEventList`.
/// All operations may be called from any thread. Modules use it through `GKMemoryProxy`.
class GK_API GKMemory : public GKModule {
public:
  GKMemory(const boost::shared_ptr<GKBroker>& broker, std::shared_ptr<GKMemoryStore> store);
  ~GKMemory() override;

  static constexpr const char* kName = "GKMemory";

  /// Called by the broker's shutdown.
  void exit() override;

  const std::shared_ptr<GKMemoryStore>& store() const noexcept { return fStore; }

  bool hasKey(const std::string& key) const;
  /// Raises `GKError` naming the key when it is not there.
  GKValue getData(const std::string& key, GKCaller caller) const;
  /// The key's four bytes, as `GKMemoryCell` describes them; valid until the process ends. Raises
  /// `GKError` naming the key when it is not there.
  void* getDataPtr(const std::string& key, GKCaller caller) const;
  void insertData(const std::string& key, const GKValue& value, GKCaller caller);

  /// Lists `event` under `owner`; a second declaration of an event changes nothing but its owner,
  /// and only modules may do that: others get a `GKError`. Who has subscribed to the event before
  /// is subscribed to an owner that is an extractor now: in a task, as soon as the owner is
  /// initialised; what it raises then is logged.
  void declareEvent(const std::string& event, const std::string& owner, GKCaller caller);

  /// Stores `value` under the event's name and hands it to the event's subscribers and observers.
  void raiseEvent(const std::string& event, const GKValue& value, GKCaller caller);
  /// The same for observers that tell the lightweight form apart.
  void raiseMicroEvent(const std::string& event, const GKValue& value, GKCaller caller);

  /// From now on `gate` is asked before anything is stored or sent; null for nobody. Who is refused
  /// gets a `GKError` with the reason, and nothing else happens. To be set while no module runs.
  void setGate(std::shared_ptr<GKWriteGate> gate) { fGate = std::move(gate); }

  /// Names of the events declared by `owner`, in the order of declaration.
  std::vector<std::string> getExtractorEvent(const std::string& owner) const;

  /// From now on `method` of `module` is called with (event name, value) each time `event` is
  /// raised: asynchronously, in order for each module, never waiting for another one. When the
  /// event's owner is an extractor, the module is subscribed to it with its first such event and
  /// unsubscribed with its last; where the event is not declared yet, `declareEvent` subscribes it.
  /// Raises `GKError` when there is no such module or method, and what the extractor raises; then
  /// nothing has changed. A repeated subscription replaces the method.
  void subscribeToEvent(const std::string& event, const std::string& module,
                        const std::string& method);
  /// Ends a subscription. No event is handed over any more when this has returned, and none is
  /// being handed over: it waits for a callback that is running, through the platform's clock. Only
  /// within an event callback, of whichever module, it does not wait. Must not be called with a
  /// lock held that the callback takes. Raises `GKError` when there is no such subscription.
  void unsubscribeToEvent(const std::string& event, const std::string& module);

  /// Existing keys that contain `pattern`, sorted.
  std::vector<std::string> getDataList(const std::string& pattern) const;
  /// All events known by declaration or raise, sorted by name.
  std::vector<GKEventInfo> getEvents() const;

private:
  // The bound forms: on behalf of whoever calls.
  GKValue xGetData(const std::string& key);
  void xInsertData(const std::string& key, const GKValue& value);
  void xDeclareEvent(const std::string& event, const std::string& owner);
  void xRaiseEvent(const std::string& event, const GKValue& value);
  void xRaiseMicroEvent(const std::string& event, const GKValue& value);
  std::vector<std::string> xGetEventList() const;

  static void xCheck(GKCaller caller, GKOperation operation, const std::string& key);
  void xRaise(GKNotice::Kind kind, const std::string& event, const GKValue& value);
  /// Asks the gate. Returns the value to be stored, which `room` has a place for.
  const GKValue& xAdmit(const char* method, GKWrite write, GKValue& room) const;
  /// Subscribes `module` to the extractor `owner` in a task, when that is initialised.
  void xSubscribeLater(const std::string& owner, const std::string& module);
  /// Subscribes `module` to the extractor whose events it uses, unless that has been done.
  void xSubscribeTo(GKModuleCore& extractor, const std::string& module);
  /// True when it was the last of `owner`'s events that `module` used, and `module` is subscribed
  /// to `owner`. With the state's lock.
  bool xEndUse(const std::string& owner, const std::string& module, const std::string& event);

  std::shared_ptr<GKMemoryStore> fStore;
  std::unique_ptr<GKMemoryState> fState;
  std::shared_ptr<GKWriteGate> fGate;
};

} // namespace GK
