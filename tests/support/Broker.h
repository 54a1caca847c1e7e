#pragma once

#include "support/Program.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <memory>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace gk::test {

/// Longest time for something that has to come, on a machine with much else to do.
inline constexpr std::chrono::seconds kPatience{60};

inline sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// A TCP socket that is bound to a port of this machine.
inline int boundSocket(std::uint16_t port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int one = 1;
  setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  const sockaddr_in address = loopback(port);
  if (bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("the port is taken");
  }
  return socket;
}

inline std::uint16_t portOf(int socket) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

inline std::uint16_t freePort() {
  const int socket = boundSocket(0);
  const std::uint16_t port = portOf(socket);
  close(socket);
  return port;
}

/// A Mosquitto on a port of its own, which it keeps when it is started again.
class Broker {
public:
  /// `more`: further lines of its configuration.
  explicit Broker(std::string more = "allow_anonymous true\n")
      : fPort(freePort()), fMore(std::move(more)) {
    start();
  }

  std::uint16_t port() const { return fPort; }
  std::string address() const { return "127.0.0.1:" + std::to_string(fPort); }
  std::string url() const { return "mqtt://" + address(); }
  const TemporaryFolder& folder() const { return fFolder; }

  void start() {
    writeFile(fFolder.file("mosquitto.conf"),
              "user root\nlistener " + std::to_string(fPort) + " 127.0.0.1\n" + fMore);
    fProgram = std::make_unique<Program>(
        std::vector<std::string>{GK_MOSQUITTO, "-c", fFolder.file("mosquitto.conf")});
    fProgram->runUntil([this] { return isListening(); });
  }
  /// As by SIGKILL.
  void stop() { fProgram.reset(); }

private:
  bool isListening() const {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(fPort);
    const bool is =
        connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(socket);
    return is;
  }

  TemporaryFolder fFolder;
  std::uint16_t fPort;
  std::string fMore;
  std::unique_ptr<Program> fProgram;
};

} // namespace gk::test
