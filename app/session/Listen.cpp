#include "app/session/Listen.h"

#include "app/session/PortOwner.h"
#include "gateway/Gateway.h"
#include "gateway/http/StaticFiles.h"
#include "messages/text/Numbers.h"

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/host_name.hpp>
#include <fmt/format.h>

#include <cstdint>
#include <utility>

namespace gk::app {

namespace {

/// Upper limits of the buckets that are told, in microseconds: the ticks' period is 20 ms.
constexpr std::int64_t kLimits[] = {10,   20,   50,    100,   200,   500,    1000,
                                    2000, 5000, 10000, 20000, 50000, 100000, 1000000};

double seconds(std::int64_t micros) {
  constexpr double perSecond = 1e6;
  return static_cast<double>(micros) / perSecond;
}

gateway::HistogramFigures figuresOf(const runtime::Histogram& times) {
  constexpr double kMedian = 0.5;
  constexpr double kMost = 0.99;
  constexpr double kNearlyAll = 0.999;
  gateway::HistogramFigures figures;
  for (const std::int64_t limit : kLimits) {
    figures.buckets.emplace_back(seconds(limit), times.countUpTo(limit));
  }
  figures.count = times.count();
  figures.sum = seconds(times.sum());
  figures.p50 = seconds(times.quantile(kMedian));
  figures.p99 = seconds(times.quantile(kMost));
  figures.p999 = seconds(times.quantile(kNearlyAll));
  return figures;
}

gateway::TickFigures figuresOf(const runtime::TickFigures& ticks) {
  gateway::TickFigures figures;
  figures.overruns = ticks.overruns;
  figures.duration = figuresOf(ticks.work);
  figures.lateness = figuresOf(ticks.lateness);
  const auto count = static_cast<double>(ticks.work.count());
  const double asked = seconds(ticks.pauses);
  const double taken = asked + figures.duration.sum + figures.lateness.sum;
  figures.rate = taken > 0 ? count / taken : 0;
  figures.askedRate = asked > 0 ? count / asked : 0;
  return figures;
}

} // namespace

std::vector<gateway::LoopFigures> loopFigures(const std::vector<runtime::LoopReport>& reports) {
  std::vector<gateway::LoopFigures> loops;
  loops.reserve(reports.size());
  for (const runtime::LoopReport& report : reports) {
    loops.push_back(
        {report.module, report.ticks, figuresOf(report.all), figuresOf(report.lastMinute)});
  }
  return loops;
}

void addListenOptions(const Command& command, ListenOptions& options) {
  command.section("Clients");
  const Option address =
      command
          .option("--listen", options.address,
                  "Serve programs, viewers and browsers at this address; port 0 takes a free one")
          .shows("ADDRESS:PORT")
          .showsDefault();
  address.whenGiven([&options] { options.isAddressGiven = true; });
  command.flag("--no-listen", options.isOff, "Serve nobody").excludes(address);
  command
      .option("--token-file", options.tokenFile,
              "Clients must know the token in this file (mode 0600); needed for addresses that "
              "others can reach")
      .shows("FILE");
  command
      .option("--allow-host", options.hosts,
              "A further name under which clients may address this host")
      .shows("NAME")
      .onceEach();
  command
      .option("--allow-origin", options.origins,
              "A further origin whose pages may connect, such as https://viewer.example")
      .shows("ORIGIN")
      .onceEach();
  command
      .option("--past", options.past,
              "Keep so many seconds of the past for the page and gk keep, in at most 32 MB; 0 for "
              "none")
      .within(0.0, 86400.0)
      .shows("SECONDS")
      .showsDefault();
}

Listening startGateway(const ListenOptions& options, const devices::ClientLimits& limits,
                       gateway::RecordingSource recording,
                       std::shared_ptr<gateway::Playback> playback,
                       std::shared_ptr<const gateway::RunSource> source) {
  if (options.isOff) {
    return {nullptr, "serves nobody (--no-listen)"};
  }
  gateway::GatewayOptions gatewayOptions;
  gatewayOptions.access.address = gateway::parseAddress(options.address);
  const std::uint16_t port = gatewayOptions.access.address.port;
  if (!options.tokenFile.empty()) {
    gatewayOptions.access.token = gateway::readToken(options.tokenFile);
  }
  gatewayOptions.access.hosts = options.hosts;
  gatewayOptions.access.origins = options.origins;
  gatewayOptions.version = GK_VERSION;
  gatewayOptions.recording = std::move(recording);
  gatewayOptions.past.length = playback != nullptr ? 0 : *messages::toMicros(options.past);
  gatewayOptions.playback = std::move(playback);
  gatewayOptions.source = std::move(source);
  gatewayOptions.limits.name = limits.names;
  gatewayOptions.limits.answer = limits.answer;
  try {
    auto gateway = std::make_unique<gateway::Gateway>(std::move(gatewayOptions));
    std::string text = "listening at " + gateway->url();
    return {std::move(gateway), std::move(text)};
  } catch (const gateway::AccessError& error) {
    if (options.isAddressGiven || !error.isAddressTaken()) {
      throw;
    }
    const std::string owner = ownerOfPort(port);
    return {nullptr,
            fmt::format("serves nobody: {} is taken by {}; --listen 127.0.0.1:0 would take "
                        "a free port",
                        options.address, owner.empty() ? "another program" : owner)};
  }
}

std::string pageFor(FleetPlace fleet, const gateway::Gateway* gateway,
                    const ListenOptions& options) {
  if (fleet == FleetPlace::None || gateway == nullptr) {
    return {};
  }
  const std::string host = gateway::parseAddress(options.address).host;
  const boost::asio::ip::address address = boost::asio::ip::make_address(host);
  if (address.is_loopback()) {
    return fleet == FleetPlace::ThisMachine ? gateway->url() : std::string();
  }
  return address.is_unspecified()
             ? fmt::format("http://{}:{}/", boost::asio::ip::host_name(), gateway->port())
             : gateway->url();
}

bool hasPage() {
  // What stands in for it is a single file.
  return gateway::staticFiles().size() > 1;
}

} // namespace gk::app
