#pragma once

#include "chaos/Dice.h"
#include "chaos/Requests.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace gk::chaos {

/// Many clients of one host at once, on one thread. Each comes, does a few things, and goes, in
/// order or not: it stops in the middle of a message, never reads what it has asked for, resets the
/// connection, or is simply gone. Another one takes its place.
class Storm {
public:
  Storm(std::uint16_t port, std::string host, std::uint64_t seed, std::size_t clients);
  ~Storm();
  Storm(const Storm&) = delete;
  Storm& operator=(const Storm&) = delete;

  /// Lets clients come and go for so long, and no more of them than `most`.
  void run(std::chrono::steady_clock::duration time, std::uint64_t most);
  /// Those that are there go on, for one look at each.
  void step();
  /// Everybody leaves at once.
  void scatter();

  std::uint64_t clients() const noexcept { return fCount; }
  std::uint64_t bytesRead() const noexcept { return fRead; }

private:
  enum class Reading : std::uint8_t { All, Some, None };
  enum class Leaving : std::uint8_t { InOrder, Reset, Vanish };

  struct Client {
    int socket = -1;
    bool isWebSocket = false;
    /// Messages can be sent: an answer to the request for a WebSocket has come.
    bool isOpen = false;
    Reading reading = Reading::All;
    Leaving leaving = Leaving::InOrder;
    /// What is still to be sent, and messages to come.
    std::string unsent;
    std::size_t messages = 0;
    /// When it leaves, if it has sent everything by then.
    std::chrono::steady_clock::time_point end;
  };

  void xCome(Client& client);
  void xLeave(Client& client);
  void xWrite(Client& client);
  void xRead(Client& client);

  const std::uint16_t fPort;
  const std::string fHost;
  Dice fDice;
  std::vector<Client> fClients;
  std::uint64_t fCount = 0;
  std::uint64_t fMost = 0;
  std::uint64_t fRead = 0;
};

} // namespace gk::chaos
