#pragma once

#include "messages/ros/Cdr.h"
#include "messages/ros/Type.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace gk::messages::ros {

/// How messages of a topic are kept and given to readers. All are sent reliably.
enum class Profile : std::uint8_t {
  Stream,  ///< the last 10, for who reads already
  Burst,   ///< the last 100, for who reads already: many may come at once
  Latched, ///< the last one, also for who comes later
  Log      ///< the last 100 of the last 10 seconds, also for who comes later
};

/// What a profile is made of.
struct Qos {
  std::uint32_t depth = 0;
  bool isTransientLocal = false;
  /// Seconds after which a message is forgotten; 0 for never.
  std::uint32_t lifespan = 0;
};
Qos qosOf(Profile profile);

struct Topic {
  /// Begins with "/"; without a namespace.
  std::string name;
  const Type* type = nullptr;
  Profile profile = Profile::Stream;
  /// Stands outside of every namespace.
  bool isGlobal = false;
};

/// A namespace as people write it ("nao", "/lab/nao/", "") with "/" before every part: "/lab/nao".
/// Raises `std::invalid_argument` with what is wrong.
std::string namespaceOf(std::string_view text);

/// The name of a topic within a namespace of `namespaceOf`.
std::string nameIn(std::string_view nameSpace, const Topic& topic);

/// One message.
struct Sample {
  /// The place of its topic in `Mapper::topics`.
  std::size_t topic = 0;
  /// Nanoseconds since 1970.
  std::uint64_t time = 0;
  /// With the four bytes that say how it is encoded. Only valid while the sink has it.
  std::string_view cdr;
};

using Sink = std::function<void(const Sample&)>;
/// Says for the place of a topic whether anybody wants its messages. Empty: all are wanted.
using IsWanted = std::function<bool(std::size_t topic)>;

/// The moment as messages tell it; the last one that they can tell for what comes after 2038.
Time stampOf(std::uint64_t nanoseconds);

/// Where messages of one moment go.
class Outlet {
public:
  /// `buffer`: for the messages, one after the other. Everything outlives this.
  Outlet(std::string& buffer, std::uint64_t time, const Sink& sink, const IsWanted& isWanted)
      : fBuffer(buffer), fTime(time), fSink(sink), fIsWanted(isWanted) {}

  Time stamp() const { return stampOf(fTime); }
  bool wants(std::size_t topic) const { return !fIsWanted || fIsWanted(topic); }

  template <class M> void send(std::size_t topic, const M& message) const {
    encode(message, fBuffer);
    fSink({topic, fTime, fBuffer});
  }

private:
  std::string& fBuffer;
  const std::uint64_t fTime;
  const Sink& fSink;
  const IsWanted& fIsWanted;
};

} // namespace gk::messages::ros
