#pragma once

#include "messages/mqtt/MqttClient.h"
#include "support/Broker.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

namespace gk::test {

/// The network between a robot and a port of this machine: it can be cut, at once or after so many
/// bytes from the robot.
class Network {
public:
  explicit Network(std::uint16_t to) : fTo(to), fListener(boundSocket(0)) {
    listen(fListener, SOMAXCONN);
    fPort = portOf(fListener);
    fThread = std::thread([this] { run(); });
  }
  ~Network() {
    fIsEnding = true;
    fThread.join();
    close(fListener);
  }
  Network(const Network&) = delete;
  Network& operator=(const Network&) = delete;

  std::string url() const { return "mqtt://127.0.0.1:" + std::to_string(fPort); }

  void setOpen(bool isOpen) { fIsOpen = isOpen; }
  /// Each connection lasts for so many bytes from the robot; -1 for all.
  void setBytes(long bytes) { fBytes = bytes; }
  int cuts() const { return fCuts; }

private:
  void run() {
    while (!fIsEnding) {
      pollfd waiting{fListener, POLLIN, 0};
      if (poll(&waiting, 1, 5) <= 0) {
        continue;
      }
      const int client = accept4(fListener, nullptr, nullptr, SOCK_CLOEXEC);
      const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      const sockaddr_in address = loopback(fTo);
      if (fIsOpen &&
          connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        pass(client, server);
      }
      close(client);
      close(server);
    }
  }

  /// Until one of the two ends, or the network.
  void pass(int client, int server) {
    long left = fBytes;
    std::vector<char> buffer(65536);
    while (!fIsEnding && fIsOpen) {
      pollfd waiting[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
      if (poll(waiting, 2, 5) <= 0) {
        continue;
      }
      for (int side = 0; side < 2; ++side) {
        if (waiting[side].revents == 0) {
          continue;
        }
        std::size_t most = buffer.size();
        if (side == 0 && left >= 0) {
          most = std::min<std::size_t>(most, static_cast<std::size_t>(left));
        }
        const ssize_t size = most == 0 ? 0 : recv(waiting[side].fd, buffer.data(), most, 0);
        if (size <= 0) {
          fCuts += most == 0 ? 1 : 0;
          return;
        }
        send(waiting[1 - side].fd, buffer.data(), static_cast<std::size_t>(size), MSG_NOSIGNAL);
        if (side == 0 && left >= 0) {
          left -= size;
        }
      }
    }
  }

  const std::uint16_t fTo;
  int fListener;
  std::uint16_t fPort = 0;
  std::atomic<bool> fIsEnding{false};
  std::atomic<bool> fIsOpen{true};
  std::atomic<long> fBytes{-1};
  std::atomic<int> fCuts{0};
  std::thread fThread;
};

/// An operator who hears everything below one filter.
class Operator {
public:
  explicit Operator(std::uint16_t port, const std::string& filter = "gk/#",
                    messages::MqttOptions options = {}) {
    options.host = "127.0.0.1";
    options.port = port;
    bool isListening = false;
    fClient = std::make_unique<messages::MqttClient>(
        std::move(options),
        messages::MqttHandlers{
            .onConnected = [this, filter] { fClient->subscribe(filter, 1); },
            .onMessage =
                [this](const messages::MqttMessage& message) { fMessages.push_back(message); },
            .onSubscribed = [&isListening](int, const std::vector<int>&) { isListening = true; }});
    fClient->connect();
    until([&] { return isListening; });
  }

  const std::vector<messages::MqttMessage>& messages() const { return fMessages; }
  std::vector<messages::MqttMessage> of(const std::string& topic) const {
    std::vector<messages::MqttMessage> found;
    for (const messages::MqttMessage& message : fMessages) {
      if (message.topic.starts_with(topic)) {
        found.push_back(message);
      }
    }
    return found;
  }

  void publish(const messages::MqttMessage& message) { fClient->publish(message); }

  /// Listens until something holds.
  template <class Condition> void until(const Condition& holds) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!holds()) {
      if (std::chrono::steady_clock::now() > end) {
        throw std::runtime_error("it did not come within a minute");
      }
      fClient->wait(std::chrono::milliseconds(5));
    }
  }

private:
  std::vector<messages::MqttMessage> fMessages;
  std::unique_ptr<messages::MqttClient> fClient;
};

} // namespace gk::test
