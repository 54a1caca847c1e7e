#include "gateway/Hub.h"

#include "devices/DeviceKeys.h"
#include "gateway/StreamSession.h"
#include "gk/GKClock.h"

#include <cmath>
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

bool isSameValue(const GK::GKValue& left, const GK::GKValue& right) {
  const auto isNan = [](const GK::GKValue& value) {
    return value.type() == GK::GKValue::Type::Float && std::isnan(value.toFloat());
  };
  return left == right || (isNan(left) && isNan(right));
}

Hub::Hub(CallRunner& runner, Counters& counters, std::string version, Post post)
    : fRunner(runner), fCounters(counters), fVersion(std::move(version)), fPost(std::move(post)) {}

Hub::~Hub() = default;

void Hub::open(std::shared_ptr<const Robot> robot) {
  fRobot = std::move(robot);
  const GK::GKClock& clock = GK::GKClock::instance();
  const GK::GKWallTime wall = clock.wallTime();
  fChannels = std::make_unique<Channels>(fRobot->store(), wall, clock.elapsed());
  fSessionId = std::to_string(wall.seconds) + "." + std::to_string(wall.microseconds);
  fServices = servicesOf(*fRobot);
  if (fRobot->memory() != nullptr) {
    for (const GK::GKEventInfo& event : fRobot->memory()->getEvents()) {
      fChannels->addEvent(event.name);
    }
  }
  fAdvertised = fChannels->all().size();
  fSubscribers.assign(fAdvertised + 1, 0);
  for (StreamSession* session : fSessions) {
    session->greet();
  }
}

void Hub::close() {
  fChannels.reset();
  fServices.clear();
  fRobot.reset();
}

std::string Hub::serverInfo() const {
  return serverInfoMessage("gksensors", fVersion, fSessionId);
}

void Hub::add(StreamSession& session) {
  fSessions.insert(&session);
}

void Hub::remove(StreamSession& session) {
  fSessions.erase(&session);
}

void Hub::addSubscriber(std::uint32_t channel) {
  ++fSubscribers[channel];
}

void Hub::removeSubscriber(std::uint32_t channel) {
  --fSubscribers[channel];
}

void Hub::process(const NoticeQueue::Batch& batch) {
  for (const GK::GKNotice& notice : batch.notices) {
    if (notice.kind == GK::GKNotice::Kind::Log) {
      fCounters.addLogLine(notice.level);
    }
  }
  fCounters.setLoops(batch.loops);
  if (fChannels == nullptr) {
    return;
  }
  for (const GK::GKNotice& notice : batch.notices) {
    const std::vector<ChannelMessage> messages = fChannels->ofNotice(notice);
    xAdvertiseNew();
    xDeliver(messages);
  }
  const auto isWanted = [this](std::uint32_t channel) { return fSubscribers[channel] > 0; };
  bool hasTicked = false;
  for (const NoticeQueue::Loop& loop : batch.loops) {
    std::uint64_t& passedOn = fTicks[loop.module];
    if (std::exchange(passedOn, loop.ticks) != loop.ticks) {
      hasTicked = true;
      xDeliver(fChannels->ofTick(loop.time, loop.module, loop.ticks, isWanted));
    }
  }
  if (hasTicked) {
    for (StreamSession* session : fSessions) {
      session->checkWatched();
    }
  }
}

void Hub::xDeliver(const std::vector<ChannelMessage>& messages) {
  for (const ChannelMessage& message : messages) {
    if (fSubscribers[message.channel] == 0) {
      continue;
    }
    const Channel& channel = fChannels->all()[message.channel - 1];
    const auto payload = std::make_shared<const std::string>(message.payload);
    for (StreamSession* session : fSessions) {
      session->deliver(channel, message.time, payload);
    }
  }
}

void Hub::xAdvertiseNew() {
  const std::deque<Channel>& all = fChannels->all();
  if (fAdvertised == all.size()) {
    return;
  }
  std::vector<const Channel*> added;
  for (; fAdvertised < all.size(); ++fAdvertised) {
    added.push_back(&all[fAdvertised]);
  }
  fSubscribers.resize(all.size() + 1, 0);
  for (StreamSession* session : fSessions) {
    session->advertise(added);
  }
}

void Hub::refresh() {
  if (fRobot == nullptr) {
    return;
  }
  xCheckDevices();
  const auto frame = std::make_shared<const std::string>(
      timeMessage(fChannels->nanoseconds(GK::GKClock::instance().elapsed())));
  for (StreamSession* session : fSessions) {
    session->tellTime(frame);
    session->checkWatched();
    session->checkDrops();
  }
}

void Hub::xCheckDevices() {
  const std::shared_ptr<GK::GKMemoryStore> store = fRobot->store();
  if (store == nullptr) {
    return;
  }
  const std::vector<devices::DeviceKey>& keys = devices::deviceKeys();
  const bool isFirst = fDevices.empty();
  fDevices.resize(keys.size());
  bool isChanged = false;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    GK::GKValue value = store->get(keys[i].name).value_or(GK::GKValue());
    if (!isSameValue(value, fDevices[i])) {
      fDevices[i] = std::move(value);
      isChanged = true;
    }
  }
  if (isChanged && !isFirst) {
    fCounters.setDeviceChange(GK::GKClock::instance().elapsed());
  }
}

} // namespace gk::gateway
