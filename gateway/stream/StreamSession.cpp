#include "gateway/stream/StreamSession.h"

#include "gk/GKClock.h"
#include "gk/GKError.h"
#include "messages/json/Json.h"
#include "messages/json/JsonText.h"
#include "messages/json/JsonWriter.h"
#include "messages/json/SameValue.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/FormatError.h"

#include <algorithm>
#include <utility>

namespace gk::gateway {

namespace {

/// Channels or services that are announced in one message, and the bytes at which it ends.
constexpr std::size_t kMostAnnounced = 100;
constexpr std::size_t kPieceBytes = 128U << 10U;

/// No channel: the slot of the clock among the samples.
constexpr std::uint32_t kTimeSlot = 0;

constexpr std::string_view kLossId = "losses";
/// After so long without a loss the report of the last one is taken back.
constexpr std::chrono::seconds kLossMemory{10};

/// What is shown to clients that ask for all parameters: the robot's configuration and what can be
/// set in a simulated world. Everything else only by name.
bool isConfiguration(std::string_view key) {
  return key.starts_with("RobotConfig/") || key.starts_with("Simulation/");
}

std::vector<std::string> configurationKeys() {
  std::vector<std::string> names;
  for (const messages::DeviceKey& key : messages::deviceKeys()) {
    if (isConfiguration(key.name)) {
      names.push_back(key.name);
    }
  }
  return names;
}

ParameterText parameterOf(const std::string& name, const GK::GKValue& value) {
  ParameterText parameter{name, {}, value.type() == GK::GKValue::Type::Float};
  messages::appendJson(parameter.value, value);
  return parameter;
}

} // namespace

StreamSession::StreamSession(Offer& offer, Limits limits, std::function<void()> wake)
    : fOffer(offer), fLimits(limits), fWake(std::move(wake)),
      fFigures(offer.counters().addClient()), fQueue(limits.queue) {}

StreamSession::~StreamSession() {
  for (const auto& [channel, subscription] : fByChannel) {
    fOffer.removeSubscriber(channel);
  }
}

void StreamSession::announce() {
  fWake();
}

template <class Parse> void StreamSession::xRead(const Parse& parse) {
  if (fOffer.robot() == nullptr) {
    xComplain(StatusLevel::Error, "the host is starting or ending");
    return;
  }
  try {
    std::visit([this](const auto& message) { this->xHandle(message); }, parse());
  } catch (const messages::FormatError& error) {
    xComplain(StatusLevel::Error, error.what());
  }
}

void StreamSession::onText(std::string_view text) {
  xRead([text] { return parseClientText(text); });
}

void StreamSession::onBinary(std::string_view bytes) {
  xRead([bytes] { return parseClientBinary(bytes); });
}

std::optional<Frame> StreamSession::next() {
  if (std::optional<Frame> news = xNextAnnouncement()) {
    return news;
  }
  if (!fQueue.hasAnswers()) {
    if (std::exchange(fHasLossToTell, false)) {
      fIsLossTold = true;
      fLastLoss = Clock::now();
      return Frame{false, statusMessage(StatusLevel::Warning, xLossText(), kLossId), nullptr};
    }
    if (!fQueue.hasEvents() && fHasChanges) {
      if (std::optional<Frame> changes = xNextChanges()) {
        return changes;
      }
    }
  }
  return fQueue.take();
}

std::optional<Frame> StreamSession::xNextAnnouncement() {
  if (fOffer.robot() == nullptr) {
    return std::nullopt;
  }
  if (!std::exchange(fIsGreeted, true)) {
    return Frame{false, fOffer.serverInfo(), nullptr};
  }
  std::size_t bytes = 0;
  const std::deque<Channel>& channels = fOffer.channels()->all();
  std::vector<const Channel*> piece;
  while (fChannelsTold < channels.size() && piece.size() < kMostAnnounced && bytes < kPieceBytes) {
    const Channel& channel = channels[fChannelsTold++];
    piece.push_back(&channel);
    bytes += channel.topic.size() + channel.schema.size();
  }
  if (!piece.empty()) {
    return Frame{false, advertiseMessage(piece), nullptr};
  }
  const std::vector<Service>& services = fOffer.services();
  const std::size_t first = fServicesTold;
  while (fServicesTold < services.size() && fServicesTold - first < kMostAnnounced &&
         bytes < kPieceBytes) {
    const Service& service = services[fServicesTold++];
    bytes += service.name.size() + service.requestSchema.size() + service.responseSchema.size();
  }
  if (fServicesTold == first) {
    return std::nullopt;
  }
  return Frame{false,
               advertiseServicesMessage(std::span(services).subspan(first, fServicesTold - first)),
               nullptr};
}

std::optional<Frame> StreamSession::xNextChanges() {
  std::vector<ParameterText> changed;
  std::size_t bytes = 0;
  fHasChanges = false;
  for (Watched& watched : fWatched) {
    if (watched.told == watched.key->version()) {
      continue;
    }
    if (bytes >= kPieceBytes) {
      fHasChanges = true;
      break;
    }
    watched.told = watched.key->version();
    changed.push_back(parameterOf(watched.key->name(), watched.key->value()));
    bytes += changed.back().name.size() + changed.back().value.size();
  }
  return changed.empty()
             ? std::nullopt
             : std::optional(Frame{false, parameterValuesMessage(changed, {}), nullptr});
}

void StreamSession::xAnswer(std::string text, bool isBinary) {
  if (!fQueue.addAnswer({isBinary, std::move(text), nullptr})) {
    fIsOverrun = true;
  }
  fWake();
}

void StreamSession::deliver(std::span<const Delivery> messages) {
  bool isForMe = false;
  for (const auto& [channel, time, payload] : messages) {
    const auto found = fByChannel.find(channel->id);
    if (found == fByChannel.end()) {
      continue;
    }
    isForMe = true;
    Frame frame{true, messageHead(found->second, time), payload};
    if (channel->flow == Flow::Queue) {
      fQueue.addEvent(channel->id, std::move(frame));
    } else {
      fQueue.setSample(channel->id, std::move(frame));
    }
  }
  if (isForMe) {
    fWake();
  }
}

void StreamSession::tellTime(const std::shared_ptr<const std::string>& frame) {
  fQueue.setSample(kTimeSlot, {true, {}, frame});
  fWake();
}

void StreamSession::setName(std::string name) {
  fOffer.counters().nameClient(*fFigures, std::move(name));
}

void StreamSession::checkWatched() {
  if (std::ranges::any_of(fWatched, [](const Watched& watched) {
        return watched.told != watched.key->version();
      })) {
    fHasChanges = true;
    fWake();
  }
}

void StreamSession::checkDrops() {
  const Clock::time_point now = Clock::now();
  for (const auto& [channel, count] : fQueue.takeDrops()) {
    if (channel == kTimeSlot) {
      continue;
    }
    const bool isEvent = fOffer.channels()->all()[channel - 1].flow == Flow::Queue;
    (isEvent ? fOffer.counters().droppedEvents : fOffer.counters().droppedSamples)
        .fetch_add(count, std::memory_order_relaxed);
    (isEvent ? fFigures->lostEvents : fFigures->lostSamples)
        .fetch_add(count, std::memory_order_relaxed);
    fLost[channel] += count;
    fLastLoss = now;
    fHasLossToTell = true;
  }
  if (fIsLossTold && !fHasLossToTell && now - fLastLoss > kLossMemory) {
    fLost.clear();
    fIsLossTold = false;
    xAnswer(removeStatusMessage(kLossId));
  }
}

std::string StreamSession::xLossText() const {
  std::string text = "this client reads too slowly; lost so far:";
  const char* separator = " ";
  for (const auto& [channel, count] : fLost) {
    text +=
        separator + std::to_string(count) + " of " + fOffer.channels()->all()[channel - 1].topic;
    separator = ", ";
  }
  return text;
}

void StreamSession::xHandle(const SubscribeMessage& message) {
  for (const auto& [subscription, channel] : message.subscriptions) {
    xSubscribe(subscription, channel);
  }
}

void StreamSession::xSubscribe(std::uint32_t subscription, std::uint64_t channel) {
  if (channel == 0 || channel > fOffer.channels()->all().size()) {
    xComplain(StatusLevel::Error, "there is no channel " + std::to_string(channel));
    return;
  }
  const auto id = static_cast<std::uint32_t>(channel);
  if (fByChannel.contains(id) || fBySubscription.contains(subscription)) {
    xComplain(StatusLevel::Warning, "subscription " + std::to_string(subscription) +
                                        " to channel " + std::to_string(channel) +
                                        " is not new and is ignored");
    return;
  }
  fByChannel[id] = subscription;
  fBySubscription[subscription] = id;
  fOffer.addSubscriber(id);
  const Channel& subscribed = fOffer.channels()->all()[id - 1];
  fKnowsPlayback = fKnowsPlayback || subscribed.topic == kPlaybackTopic;
  if (const Offer::State* state = fOffer.state(id)) {
    const Delivery told{&subscribed, state->time, state->payload};
    deliver({&told, 1});
    return;
  }
  const GK::GKMicros now = GK::GKClock::instance().elapsed();
  std::optional<ChannelMessage> sample;
  if (fOffer.rosChannels() != nullptr) {
    sample = fOffer.rosChannels()->latched(id, now);
  }
  if (!sample && fOffer.playback() != nullptr) {
    // Where the clock stands still no tick will tell it.
    sample = fOffer.channels()->sample(id, now);
  }
  if (sample) {
    const Delivery told{&subscribed, sample->time,
                        std::make_shared<const std::string>(std::move(sample->payload))};
    deliver({&told, 1});
  }
}

void StreamSession::xHandle(const UnsubscribeMessage& message) {
  for (const std::uint32_t subscription : message.subscriptions) {
    const auto found = fBySubscription.find(subscription);
    if (found == fBySubscription.end()) {
      xComplain(StatusLevel::Warning, "there is no subscription " + std::to_string(subscription));
      continue;
    }
    fQueue.forget(found->second);
    fOffer.removeSubscriber(found->second);
    fByChannel.erase(found->second);
    fBySubscription.erase(found);
  }
}

ParameterText StreamSession::xParameter(const std::string& name) const {
  const std::shared_ptr<GK::GKMemoryStore> store = fOffer.robot()->store();
  const std::optional<GK::GKValue> value = store != nullptr ? store->get(name) : std::nullopt;
  return value ? parameterOf(name, *value) : ParameterText{name, {}, false};
}

void StreamSession::xHandle(const GetParametersMessage& message) {
  std::vector<ParameterText> parameters;
  std::size_t bytes = 0;
  for (const std::string& name : message.names.empty() ? configurationKeys() : message.names) {
    parameters.push_back(xParameter(name));
    bytes += parameters.back().name.size() + parameters.back().value.size();
    if (bytes > fLimits.answer) {
      parameters.pop_back();
      xComplain(StatusLevel::Error, "the answer has only " + std::to_string(parameters.size()) +
                                        " of the parameters, with the others it would be larger "
                                        "than " +
                                        std::to_string(fLimits.answer) + " bytes");
      break;
    }
  }
  xAnswer(parameterValuesMessage(parameters, message.id.value_or("")));
}

void StreamSession::xHandle(const SetParametersMessage& message) {
  std::vector<ParameterText> parameters;
  for (const SetParametersMessage::Parameter& parameter : message.parameters) {
    try {
      if (!parameter.value) {
        throw messages::FormatError("a memory key cannot be removed");
      }
      // In JavaScript 1.0 and 1 are the same: the type tells them apart.
      const bool isFloat = parameter.type == "float64" && parameter.value->is_int64();
      fOffer.robot()->writeKey(parameter.name, isFloat ? boost::json::value(static_cast<double>(
                                                             parameter.value->get_int64()))
                                                       : *parameter.value);
    } catch (const messages::FormatError& error) {
      xComplain(StatusLevel::Error, parameter.name + ": " + error.what());
    } catch (const GK::GKError& error) {
      xComplain(StatusLevel::Error, parameter.name + ": " + error.getDescription());
    }
    parameters.push_back(xParameter(parameter.name));
  }
  if (message.id) {
    xAnswer(parameterValuesMessage(parameters, *message.id));
  }
}

void StreamSession::xHandle(const WatchParametersMessage& message) {
  const std::vector<std::string> names =
      message.names.empty() ? configurationKeys() : message.names;
  if (!message.isOn) {
    std::erase_if(fWatched, [&](const Watched& watched) {
      return message.names.empty() || std::ranges::find(names, watched.key->name()) != names.end();
    });
    return;
  }
  for (const std::string& name : names) {
    xWatch(name);
  }
  checkWatched();
}

void StreamSession::xWatch(const std::string& name) {
  if (std::ranges::any_of(fWatched,
                          [&](const Watched& watched) { return watched.key->name() == name; })) {
    return;
  }
  if (name.size() > fLimits.name) {
    xComplain(StatusLevel::Error, "a name has at most " + std::to_string(fLimits.name) +
                                      " bytes: " + messages::quotedText(name) + " is not watched");
    return;
  }
  if (fWatched.size() >= fLimits.watched) {
    xComplain(StatusLevel::Error, "no more than " + std::to_string(fLimits.watched) +
                                      " parameters can be watched: " + name + " is not");
    return;
  }
  fWatched.push_back({fOffer.watches().watch(name), 0});
}

void StreamSession::xHandle(const ServiceCallMessage& message) {
  const auto fail = [&](std::string_view why) {
    xAnswer(serviceFailureMessage(message.service, message.call, why));
  };
  if (message.service == 0 || message.service > fOffer.services().size()) {
    fail("there is no such service");
    return;
  }
  if (message.encoding != "json") {
    fail("the encoding must be json");
    return;
  }
  if (fCallsRunning >= fLimits.calls) {
    fail("too many calls are running");
    return;
  }
  boost::json::value params;
  try {
    params = messages::parseJson(message.payload.empty() ? "{}" : message.payload);
  } catch (const messages::FormatError& error) {
    fail(error.what());
    return;
  }
  if (!params.is_object() && !params.is_array()) {
    fail("the request must be an object or an array");
    return;
  }
  const std::string& name = fOffer.services()[message.service - 1].name;
  const std::size_t dot = name.find('.');
  auto resolved = fOffer.robot()->resolve(name.substr(0, dot), name.substr(dot + 1), params);
  if (const auto* error = std::get_if<RpcError>(&resolved)) {
    fail(error->message);
    return;
  }
  const Clock::time_point start = Clock::now();
  const auto done = [session = weak_from_this(), &offer = fOffer, message, name,
                     start](CallOutcome outcome) {
    const std::chrono::duration<double> taken = Clock::now() - start;
    offer.counters().addCall(name, taken.count(), outcome.error.has_value());
    offer.post()([session, message, outcome = std::move(outcome)] {
      if (const auto alive = session.lock()) {
        alive->xFinish(message, outcome);
      }
    });
  };
  if (!fOffer.runner().start(std::get<BoundCall>(std::move(resolved)), done)) {
    fail("too many calls are running");
    return;
  }
  ++fCallsRunning;
}

void StreamSession::xTellPlayback(const PlaybackState& state, bool didSeek,
                                  std::string_view requestId) {
  const PlaybackStatus status = state.isPlaying    ? PlaybackStatus::Playing
                                : state.hasEnded() ? PlaybackStatus::Ended
                                                   : PlaybackStatus::Paused;
  xAnswer(playbackStateMessage(status, fOffer.channels()->nanoseconds(state.time),
                               static_cast<float>(state.speed), didSeek, requestId),
          true);
}

void StreamSession::xHandle(const PlaybackControlMessage& message) {
  Playback* const playback = fOffer.playback();
  if (playback == nullptr) {
    throw messages::FormatError("the binary operation 3 is not offered");
  }
  fKnowsPlayback = true;
  fHasPlaybackFrames = true;
  // There is no speed below: 0 would be as fast as possible.
  playback->setSpeed(std::max<double>(message.speed, Playback::kSlowest));
  if (message.seek) {
    constexpr std::int64_t perMicro = 1000;
    const auto time = static_cast<GK::GKMicros>(*message.seek / perMicro);
    playback->seek(time - playback->facts().epoch);
  }
  if (message.isPlay) {
    playback->play();
  } else {
    playback->pause();
  }
  xTellPlayback(playback->state(), message.seek.has_value(), message.requestId);
}

void StreamSession::onPlayback(const PlaybackState& state, Playback::Change change) {
  if (fHasPlaybackFrames) {
    xTellPlayback(state, change.didSeek, {});
  } else if (change.wentBack && !fKnowsPlayback && fIsGreeted) {
    xAnswer(fOffer.serverInfo());
  }
}

void StreamSession::xFinish(const ServiceCallMessage& call, const CallOutcome& outcome) {
  --fCallsRunning;
  if (outcome.error) {
    xAnswer(serviceFailureMessage(call.service, call.call, outcome.error->message));
    return;
  }
  std::string payload;
  messages::JsonWriter json(payload);
  json.beginObject();
  if (outcome.result) {
    json.key("result").value(*outcome.result);
  }
  json.endObject();
  if (payload.size() > fLimits.answer) {
    xAnswer(serviceFailureMessage(call.service, call.call,
                                  "the result is larger than " + std::to_string(fLimits.answer) +
                                      " bytes"));
    return;
  }
  xAnswer(serviceResponseMessage(call.service, call.call, payload), true);
}

} // namespace gk::gateway
