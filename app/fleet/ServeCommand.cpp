#include "app/fleet/FleetBook.h"
#include "app/fleet/FleetCards.h"
#include "app/fleet/FleetCommands.h"
#include "app/fleet/FleetLink.h"
#include "app/fleet/FleetServer.h"
#include "app/terminal/SignalWatch.h"
#include "gateway/http/Access.h"
#include "messages/fleet/BrokerAddress.h"
#include "messages/fleet/FleetTopics.h"

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace gk::app {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kFleetHost = "127.0.0.1";
constexpr std::uint16_t kFleetPort = 8092;
/// Ports that are tried where the first one is taken.
constexpr std::uint16_t kMostTries = 32;
/// Cards are made anew so often at most: a robot may raise a hundred events a second.
constexpr std::chrono::milliseconds kCardsTime{250};

struct ServeOptions {
  std::string address;
  std::string tokenFile;
  std::vector<std::string> hosts;
};

/// At the address that is asked for, or at the first one from the usual on that is free.
std::unique_ptr<FleetServer> listenAt(const ServeOptions& options, const FleetCards& cards) {
  gateway::AccessOptions access;
  access.hosts = options.hosts;
  if (!options.tokenFile.empty()) {
    access.token = gateway::readToken(options.tokenFile);
  }
  if (!options.address.empty()) {
    access.address = gateway::parseAddress(options.address);
    return std::make_unique<FleetServer>(access, cards);
  }
  for (std::uint16_t i = 0;; ++i) {
    access.address = {kFleetHost, static_cast<std::uint16_t>(kFleetPort + i)};
    try {
      return std::make_unique<FleetServer>(access, cards);
    } catch (const gateway::AccessError& error) {
      if (!error.isAddressTaken() || i == kMostTries) {
        throw;
      }
    }
  }
}

std::vector<FleetSubscription> everything(const BrokerOptions& options) {
  const std::string site = siteFilter(options);
  std::vector<FleetSubscription> subscriptions;
  for (const std::string& kind :
       {std::string(messages::kConnectionTopic), std::string(messages::kFactsheetTopic),
        std::string(messages::kStateTopic), std::string(messages::kGapTopic),
        std::string(messages::kEventTopic) + "/+"}) {
    // A page shows how things are: what comes late or is lost is not asked for again.
    subscriptions.push_back({messages::fleetFilter(options.root, site, kind), 0});
  }
  return subscriptions;
}

/// Keeps the cards as the robots tell, until somebody wants the end.
class FleetListener {
public:
  FleetListener(const BrokerOptions& options, FleetCards& cards)
      : fCards(cards), fLink(options, everything(options),
                             {[this](const messages::MqttMessage& message) {
                                fBook.take(message.topic, message.payload, Clock::now());
                                fIsNew = true;
                              },
                              {},
                              [this](const std::string& why) { fCards.setTrouble(why); }}) {}

  void open() { fLink.open(); }
  void run() {
    fLink.run([this] {
      const Clock::time_point now = Clock::now();
      const bool isDue = now - fUpdated >= kCardsTime;
      if (isDue) {
        fIsNew = !fBook.look(now).empty() || fIsNew;
      }
      if (isDue && fIsNew) {
        fCards.update(fBook);
        fUpdated = now;
        fIsNew = false;
      }
      return fIsOver.load();
    });
    fLink.close();
  }
  /// Any thread.
  void end() {
    fIsOver = true;
    fLink.wake();
  }

private:
  FleetCards& fCards;
  FleetBook fBook;
  bool fIsNew = true;
  Clock::time_point fUpdated;
  std::atomic<bool> fIsOver{false};
  FleetLink fLink;
};

int serveFleet(const BrokerOptions& options, const ServeOptions& serve) {
  checkFleetNames(options);
  blockWatchedSignals();
  const auto start = std::chrono::system_clock::now().time_since_epoch();
  FleetCards cards(
      std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(start).count()),
      messages::parseBrokerAddress(options.broker, true).url());
  const std::unique_ptr<FleetServer> server = listenAt(serve, cards);
  FleetListener listener(options, cards);
  listener.open();
  std::exception_ptr problem;
  std::thread thread([&] {
    try {
      listener.run();
    } catch (...) {
      problem = std::current_exception();
    }
    server->stop();
  });
  {
    const SignalWatch watch([&](const EndWish&) { listener.end(); }, std::nullopt);
    fmt::print(stderr, "gk fleet: the fleet's page is at {}\n", server->url());
    std::fflush(stderr);
    server->run();
  }
  thread.join();
  if (problem) {
    std::rethrow_exception(problem);
  }
  return kSuccess;
}

} // namespace

void addFleetServeCommand(const Command& program, const std::shared_ptr<BrokerOptions>& options) {
  const Command command =
      program.subcommand("serve", "Serve a page with a card for each robot, until Ctrl-C");
  auto serve = std::make_shared<ServeOptions>();
  command
      .option("--listen", serve->address,
              "Where to serve it; else 127.0.0.1:8092 or the next port that is free")
      .shows("ADDRESS:PORT");
  command
      .option("--token-file", serve->tokenFile,
              "Browsers must know the token in this file (mode 0600); needed for addresses that "
              "others can reach")
      .shows("FILE");
  command
      .option("--allow-host", serve->hosts, "A further name under which the page may be asked for")
      .shows("NAME")
      .onceEach();
  addBrokerOptions(command, *options);
  command.does([=] { return runFleet([&] { return serveFleet(*options, *serve); }); });
}

} // namespace gk::app
