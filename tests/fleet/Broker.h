#pragma once

#include "messages/mqtt/MqttClient.h"
#include "support/Program.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <functional>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace gk::app::test {

/// A port of this machine that nobody has.
inline std::uint16_t freePort() {
  const int one = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  bind(one, reinterpret_cast<const sockaddr*>(&address), size);
  getsockname(one, reinterpret_cast<sockaddr*>(&address), &size);
  close(one);
  return ntohs(address.sin_port);
}

/// Whether somebody listens there.
inline bool isListening(std::uint16_t port) {
  const int one = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const bool isThere =
      connect(one, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(one);
  return isThere;
}

/// A broker on a free port of this machine.
class Broker {
public:
  Broker() : fPort(freePort()), fProgram({GK_MOSQUITTO, "-p", std::to_string(fPort)}) {
    fProgram.runUntil([this] { return isListening(fPort); });
  }

  std::uint16_t port() const { return fPort; }
  std::string address() const { return "127.0.0.1:" + std::to_string(fPort); }

private:
  std::uint16_t fPort;
  gk::test::Program fProgram;
};

/// A client that says what a test wants of a robot.
class Robot {
public:
  explicit Robot(const Broker& broker)
      : fClient(optionsFor(broker), {[this] { fIsConnected = true; },
                                     [this](int, const std::string& why) { fProblem = why; },
                                     [this](const messages::MqttMessage& message) {
                                       if (answer) {
                                         fClient.publish(answer(message));
                                       }
                                     },
                                     [this](int, int) { ++fTaken; },
                                     [this](int, const std::vector<int>&) { ++fTaken; }}) {
    fClient.connect();
    waitUntil([this] { return fIsConnected; });
  }

  /// Returns once the broker has it.
  void say(const std::string& topic, const std::string& payload, bool isRetained = true) {
    const int before = fTaken;
    fClient.publish({topic, payload, 1, isRetained});
    waitUntil([this, before] { return fTaken > before; });
  }
  void listen(const std::string& filter) {
    const int before = fTaken;
    fClient.subscribe(filter, 1);
    waitUntil([this, before] { return fTaken > before; });
  }
  /// Works until something is so. Raises std::runtime_error when the connection ends.
  void waitUntil(const std::function<bool()>& isSo) {
    while (!isSo()) {
      fClient.wait(std::chrono::milliseconds(10));
      if (!fProblem.empty()) {
        throw std::runtime_error(fProblem);
      }
    }
  }

  std::function<messages::MqttMessage(const messages::MqttMessage&)> answer;

private:
  static messages::MqttOptions optionsFor(const Broker& broker) {
    messages::MqttOptions options;
    options.host = "127.0.0.1";
    options.port = broker.port();
    return options;
  }

  bool fIsConnected = false;
  int fTaken = 0;
  std::string fProblem;
  messages::MqttClient fClient;
};

} // namespace gk::app::test
