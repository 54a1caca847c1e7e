#include "chaos/Storm.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace gk::chaos {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostMessages = 12;
/// How long a client stays after its last message at most, ms from its first one.
constexpr std::size_t kLongestStay = 1500;
/// Between two looks at clients of which none can go on, ms.
constexpr int kPause = 5;

} // namespace

Storm::Storm(std::uint16_t port, std::string host, std::uint64_t seed, std::size_t clients)
    : fPort(port), fHost(std::move(host)), fDice(seed), fClients(clients) {}

Storm::~Storm() {
  scatter();
}

void Storm::run(Clock::duration time, std::uint64_t most) {
  fMost = fCount + most;
  const Clock::time_point end = Clock::now() + time;
  while (Clock::now() < end) {
    for (Client& client : fClients) {
      if (client.socket < 0 && fCount < fMost) {
        xCome(client);
      }
    }
    step();
  }
}

void Storm::step() {
  std::vector<pollfd> polled;
  for (const Client& client : fClients) {
    // Even who never reads has to see the answer to its request for a WebSocket.
    const bool isReader = client.reading != Reading::None || !client.isOpen;
    polled.push_back(
        {client.socket,
         static_cast<short>((isReader ? POLLIN : 0) | (client.unsent.empty() ? 0 : POLLOUT)), 0});
  }
  poll(polled.data(), polled.size(), kPause);
  for (std::size_t i = 0; i < fClients.size(); ++i) {
    Client& client = fClients[i];
    if (client.socket < 0) {
      continue;
    }
    if ((polled[i].revents & (POLLERR | POLLHUP)) != 0) {
      xLeave(client);
      continue;
    }
    if ((polled[i].revents & POLLIN) != 0) {
      xRead(client);
    }
    if (client.socket >= 0 && (polled[i].revents & POLLOUT) != 0) {
      xWrite(client);
    }
    if (client.socket < 0 || !client.unsent.empty()) {
      continue;
    }
    if (!client.isOpen && Clock::now() < client.end) {
      continue;
    }
    if (client.messages > 0 && client.isOpen) {
      --client.messages;
      client.unsent = client.isWebSocket ? webSocketMessage(fDice) : httpRequest(fDice, fHost);
      if (fDice.oneIn(20)) {
        client.unsent.resize(fDice.below(client.unsent.size() + 1));
        client.messages = 0;
      }
    } else if (Clock::now() >= client.end) {
      xLeave(client);
    }
  }
}

void Storm::scatter() {
  for (Client& client : fClients) {
    if (client.socket >= 0) {
      xLeave(client);
    }
  }
}

void Storm::xCome(Client& client) {
  client = {};
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fDice.oneIn(3)) {
    const int small = 4096;
    setsockopt(made, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(fPort);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(made);
    return;
  }
  ++fCount;
  client.socket = made;
  client.isWebSocket = fDice.oneIn(2);
  client.isOpen = !client.isWebSocket;
  constexpr Reading readings[] = {Reading::All, Reading::All, Reading::Some, Reading::None};
  constexpr Leaving leavings[] = {Leaving::InOrder, Leaving::Reset, Leaving::Vanish};
  client.reading = fDice.pick(readings);
  client.leaving = fDice.pick(leavings);
  client.messages = fDice.below(kMostMessages);
  client.end = Clock::now() + std::chrono::milliseconds(fDice.below(kLongestStay));
  if (client.isWebSocket) {
    client.unsent = upgradeRequest(fHost);
  }
  if (fDice.oneIn(15)) {
    // All at once, and away before anything can be answered.
    for (; client.messages > 0; --client.messages) {
      client.unsent += client.isWebSocket ? webSocketMessage(fDice) : httpRequest(fDice, fHost);
    }
    client.end = {};
    client.isOpen = true;
  }
}

void Storm::xLeave(Client& client) {
  if (client.leaving == Leaving::Reset) {
    const linger none{1, 0};
    setsockopt(client.socket, SOL_SOCKET, SO_LINGER, &none, sizeof none);
  } else if (client.leaving == Leaving::InOrder) {
    if (client.isWebSocket) {
      const std::string goodbye = frame(8, "\x03\xe8");
      [[maybe_unused]] const ssize_t sent =
          send(client.socket, goodbye.data(), goodbye.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    shutdown(client.socket, SHUT_WR);
  }
  close(client.socket);
  client.socket = -1;
}

void Storm::xWrite(Client& client) {
  const ssize_t count =
      send(client.socket, client.unsent.data(), client.unsent.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
    xLeave(client);
  } else if (count > 0) {
    client.unsent.erase(0, static_cast<std::size_t>(count));
  }
}

void Storm::xRead(Client& client) {
  char bytes[65536];
  const std::size_t wanted = client.reading == Reading::Some ? 100 : sizeof bytes;
  const ssize_t count = recv(client.socket, bytes, wanted, MSG_DONTWAIT);
  if (count > 0) {
    fRead += static_cast<std::uint64_t>(count);
    client.isOpen = true;
  } else if (count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
    xLeave(client);
  }
}

} // namespace gk::chaos
