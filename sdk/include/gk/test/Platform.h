#pragma once

#include "gk/GKBroker.h"
#include "gk/GKConvert.h"
#include "gk/GKValue.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace GK {
class GKBrokerManager;
class GKMemory;
class GKMemoryStore;
} // namespace GK

namespace gk::test {

enum class Kind : std::uint8_t { Event, MicroEvent };

/// An event that was raised.
struct Event {
  /// Seconds since the platform was made.
  double time = 0.0;
  std::string name;
  GK::GKValue value;
  Kind kind = Kind::Event;
};

/// A line of the log.
struct LogLine {
  /// Seconds since the platform was made.
  double time = 0.0;
  /// 1 fatal, 2 error, 3 warning, 4 info, 5 verbose, 6 debug.
  int level = 0;
  std::string category;
  std::string function;
  /// Without final newline.
  std::string text;
};

/// A whole platform for the tests of modules: virtual clock, broker, memory service, DCM, resource
/// manager. Nothing sleeps in real time, and the same test does the same each time.
///
/// What the test's thread does happens at the present time; `advance` lets everything else run. One
/// at a time in a process; for the thread that made it.
class Platform {
public:
  enum Services : std::uint8_t { kAllServices, kMemoryOnly, kNoServices };

  /// Wall time at the beginning: 2026-01-01T00:00:00 UTC, in seconds since 1970.
  static constexpr std::int64_t kEpoch = 1767225600;

  explicit Platform(Services services = kAllServices);
  /// Shuts down, then closes the libraries.
  ~Platform();
  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;

  /// Writes a key as the device layer does.
  void set(const std::string& key, const GK::GKValue& value);
  /// A key's present value. Raises `GKError` when there is no such key.
  GK::GKValue get(const std::string& key) const;

  /// Lets everything happen that is due within these seconds, rounded to microseconds; what is due
  /// at their end has happened as well. With 0: what is due now, such as deliveries of events.
  /// Raises `GKError` for what is no time.
  void advance(double seconds);

  /// Calls a bound method as other modules do; `method`: "Module.method". One that sleeps lets time
  /// pass. Returns an invalid value for methods without result. Raises what the method raises, and
  /// `GKError` when there is no such module or method.
  template <class... A> GK::GKValue call(const std::string& method, A&&... arguments) {
    return xCall(method, {GK::GKConvert<std::decay_t<A>>::to(std::forward<A>(arguments))...});
  }

  /// Loads a module library and lets it create its modules. Raises `GKError` when there is no such
  /// library, and what its modules raise.
  void load(const std::string& path);

  /// Everything that was raised so far, in order.
  std::vector<Event> events() const;
  /// Every line that was logged so far, whatever its level.
  std::vector<LogLine> log() const;
  /// Forgets events and log.
  void clear();

  /// Seconds since the platform was made.
  double now() const;

  /// Where modules live; empty after `shutdown`. `GK::GKModule::createModule<Mine>(broker())` makes
  /// one without a library.
  const boost::shared_ptr<GK::GKBroker>& broker() const noexcept { return fBroker; }
  /// The memory's keys.
  const std::shared_ptr<GK::GKMemoryStore>& store() const noexcept { return fStore; }
  /// The memory service. Not with `kNoServices`.
  GK::GKMemory& memory() const noexcept { return *fMemory; }

  /// Ends the life of all modules, as a host does.
  void shutdown();

private:
  class Watch;

  GK::GKValue xCall(const std::string& method, const std::vector<GK::GKValue>& arguments);

  std::shared_ptr<GK::GKMemoryStore> fStore;
  boost::shared_ptr<Watch> fWatch;
  boost::shared_ptr<GK::GKBrokerManager> fManager;
  boost::shared_ptr<GK::GKBroker> fBroker;
  boost::shared_ptr<GK::GKMemory> fMemory;
  std::vector<void*> fLibraries;
};

} // namespace gk::test
