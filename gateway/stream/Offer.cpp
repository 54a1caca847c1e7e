#include "gateway/stream/Offer.h"

#include "gk/GKClock.h"

#include <map>
#include <utility>

namespace gk::gateway {

namespace {

/// The bound methods of all modules; overloads share a service.
std::vector<Service> servicesOf(const Robot& robot) {
  std::vector<Service> services;
  for (const auto& module : robot.broker().getModules()) {
    std::map<std::string, std::vector<GK::GKMethodDescription>> byName;
    for (const GK::GKMethodDescription& method : module->getMethods()) {
      byName[method.name].push_back(method);
    }
    for (const auto& [name, overloads] : byName) {
      const std::string& type = overloads.front().result.type;
      const std::string properties =
          type.empty() ? std::string() : R"("result":)" + schemaOfType(type);
      services.push_back({static_cast<std::uint32_t>(services.size() + 1),
                          module->getName() + "." + name, schemaOfParams(overloads),
                          R"({"type":"object","properties":{)" + properties + "}}"});
    }
  }
  return services;
}

} // namespace

Offer::Offer(CallRunner& runner, Counters& counters, std::string version, std::string session,
             Post post, Playback* playback)
    : fRunner(runner), fCounters(counters), fVersion(std::move(version)),
      fSessionId(std::move(session)), fPost(std::move(post)), fPlayback(playback) {}

void Offer::open(std::shared_ptr<const Robot> robot) {
  fRobot = std::move(robot);
  const GK::GKClock& clock = GK::GKClock::instance();
  fChannels = std::make_unique<Channels>(fRobot->store(), clock.wallTime(), clock.elapsed());
  fServices = fPlayback == nullptr ? servicesOf(*fRobot) : std::vector<Service>();
  fWatches.open(fRobot->store());
  if (fRobot->memory() != nullptr) {
    for (const GK::GKEventInfo& event : fRobot->memory()->getEvents()) {
      fChannels->addEvent(event.name);
    }
  }
  if (fRobot->store() != nullptr) {
    fRosChannels = std::make_unique<RosChannels>(*fChannels, fRobot->store(), clock.wallTime(),
                                                 clock.elapsed());
  }
}

void Offer::close() {
  fWatches.open(nullptr);
  fStates.clear();
  fRosChannels.reset();
  fChannels.reset();
  fServices.clear();
  fRobot.reset();
}

std::string Offer::serverInfo() const {
  const std::string session =
      fSessions == 0 ? fSessionId : fSessionId + "-" + std::to_string(fSessions);
  std::optional<PlayedSpan> played;
  if (fPlayback != nullptr) {
    const PlaybackState state = fPlayback->state();
    played.emplace(fChannels->nanoseconds(state.begin), fChannels->nanoseconds(state.end));
  }
  return serverInfoMessage("gksensors", fVersion, session, played);
}

const Offer::State* Offer::state(std::uint32_t channel) const {
  const auto found = fStates.find(channel);
  return found != fStates.end() ? &found->second : nullptr;
}

void Offer::addSubscriber(std::uint32_t channel) {
  if (fSubscribers.size() <= channel) {
    fSubscribers.resize(channel + 1, 0);
  }
  ++fSubscribers[channel];
}

void Offer::removeSubscriber(std::uint32_t channel) {
  --fSubscribers[channel];
}

} // namespace gk::gateway
