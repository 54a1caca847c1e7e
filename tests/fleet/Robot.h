#pragma once

#include "messages/mqtt/MqttClient.h"
#include "support/Broker.h"

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace gk::app::test {

/// A client that says what a test wants of a robot.
class Robot {
public:
  explicit Robot(const gk::test::Broker& broker)
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
  static messages::MqttOptions optionsFor(const gk::test::Broker& broker) {
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
