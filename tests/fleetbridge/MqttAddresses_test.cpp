#include "fleetbridge/Broker.h"
#include "messages/mqtt/MqttClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <netdb.h>
#include <string>
#include <string_view>
#include <utility>

// Hosts that have addresses of both families, of which the broker listens at one.

namespace {

using GetAddresses = int (*)(const char*, const char*, const addrinfo*, addrinfo**);

int systemAddresses(const char* host, const char* service, const addrinfo* wanted,
                    addrinfo** found) {
  static const auto next = reinterpret_cast<GetAddresses>(dlsym(RTLD_NEXT, "getaddrinfo"));
  return next(host, service, wanted, found);
}

} // namespace

/// In this program "localhost" has the addresses that it has on most machines, in their order,
/// whatever this machine says. libmosquitto asks here as well.
extern "C" __attribute__((visibility("default"))) int
getaddrinfo(const char* host, const char* service, const addrinfo* wanted, addrinfo** found) {
  if (host == nullptr || std::string_view(host) != "localhost") {
    return systemAddresses(host, service, wanted, found);
  }
  addrinfo* old = nullptr;
  const int code = systemAddresses("127.0.0.1", service, wanted, &old);
  if (code != 0 || systemAddresses("::1", service, wanted, found) != 0) {
    *found = old;
    return code;
  }
  addrinfo* last = *found;
  while (last->ai_next != nullptr) {
    last = last->ai_next;
  }
  last->ai_next = old;
  return 0;
}

namespace gk::messages {
namespace {

using test::Broker;
using testing::ElementsAre;

/// What becomes of connections, one after the other.
class Connections {
public:
  explicit Connections(std::uint16_t port)
      : fClient(options(port),
                {.onConnected = [this] { fOutcomes.emplace_back("connected"); },
                 .onClosed = [this](int, const std::string& text) { fOutcomes.push_back(text); }}) {
  }

  /// Connects until that has come to something.
  void connect() {
    const std::size_t before = fOutcomes.size();
    try {
      fClient.connect();
    } catch (const MqttError& error) {
      fOutcomes.emplace_back(error.what());
    }
    const auto end = std::chrono::steady_clock::now() + test::kPatience;
    while (fOutcomes.size() == before && std::chrono::steady_clock::now() < end) {
      EXPECT_TRUE(fClient.isConnecting());
      fClient.wait(std::chrono::milliseconds(5));
    }
  }
  const std::vector<std::string>& outcomes() const { return fOutcomes; }

private:
  static MqttOptions options(std::uint16_t port) {
    MqttOptions options;
    options.host = "localhost";
    options.port = port;
    return options;
  }

  std::vector<std::string> fOutcomes;
  MqttClient fClient;
};

TEST(MqttAddresses, TheSecondFamilyIsTriedWhereTheFirstDoesNotAnswer) {
  const Broker broker;
  Connections connections(broker.port());
  connections.connect();
  connections.connect();
  EXPECT_THAT(connections.outcomes(), ElementsAre("connected", "connected"));
}

TEST(MqttAddresses, OneReasonIsToldWhenNobodyAnswers) {
  Connections connections(test::freePort());
  connections.connect();
  connections.connect();
  EXPECT_THAT(connections.outcomes(), ElementsAre("Connection refused", "Connection refused"));
}

TEST(MqttAddresses, WhatTheBrokerRefusesIsNotTriedAnew) {
  const Broker broker("allow_anonymous false\n");
  Connections connections(broker.port());
  connections.connect();
  EXPECT_THAT(connections.outcomes(),
              ElementsAre("the broker refuses the connection: not authorized"));
}

} // namespace
} // namespace gk::messages
