#pragma once

#include "extensions/ros2/Graph.h"
#include "extensions/ros2/Network.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

struct ddsi_sertype;

namespace gk::ros2 {

/// What DDS refuses. The text is one line.
class DdsError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// What is offered to readers.
struct Offer {
  /// Whoever comes later gets the last ones as well.
  bool isLatched = false;
  int depth = 10;
  /// Later nobody gets them any more; 0 for ever.
  std::chrono::nanoseconds lifespan{0};
};

/// Our place in a DDS domain. For one thread, which makes and destroys it as well: Cyclone DDS
/// keeps something for each thread that uses it, and threads outlive module libraries.
class Participant {
public:
  /// A writer or a reader.
  using Handle = std::int32_t;

  /// `configuration`: see `configurationOf`. `tell` gets what Cyclone DDS has to say, a line each,
  /// on whichever thread. Raises `DdsError`.
  Participant(std::uint32_t domain, const std::string& configuration,
              std::function<void(const std::string& line)> tell);
  ~Participant();
  Participant(const Participant&) = delete;
  Participant& operator=(const Participant&) = delete;

  /// A writer to a DDS topic, all reliable. `typeHash`: "RIHS01_...". Raises `DdsError`.
  Handle addWriter(const std::string& topic, const std::string& type, const std::string& typeHash,
                   const Offer& offer);
  /// A reader of all that others write there.
  Handle addReader(const std::string& topic, const std::string& type, const std::string& typeHash);
  /// Ends a writer or reader.
  void remove(Handle handle);

  /// Sends bytes with their encapsulation. False when DDS takes none.
  bool write(Handle writer, std::string_view bytes);
  /// Gives what has come in since.
  void take(Handle reader, const std::function<void(std::span<const std::uint8_t>)>& give);

  /// How many readers a writer has at present.
  std::uint32_t readers(Handle writer) const;

  Gid gid() const { return xGid(fParticipant); }
  Gid gid(Handle handle) const { return xGid(handle); }

private:
  struct Writer {
    Handle handle;
    const ddsi_sertype* type;
  };

  static Gid xGid(Handle entity);
  Handle xAddTopic(const std::string& name, const std::string& type, const ddsi_sertype** used);

  std::function<void(const std::string&)> fTell;
  Handle fDomain = 0;
  Handle fParticipant = 0;
  std::vector<Writer> fWriters;
};

} // namespace gk::ros2
