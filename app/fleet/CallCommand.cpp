#include "app/client/HostAddress.h"
#include "app/client/Words.h"
#include "app/fleet/FleetBook.h"
#include "app/fleet/FleetCommands.h"
#include "app/fleet/FleetLink.h"
#include "formats/text/NearestNames.h"
#include "messages/fleet/FleetPayload.h"
#include "messages/fleet/FleetTopics.h"
#include "messages/json/Json.h"
#include "messages/text/FormatError.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <sys/random.h>
#include <vector>

namespace gk::app {

namespace {

using Clock = std::chrono::steady_clock;

constexpr double kCallTime = 10;
/// How long the broker has to say which robots there are.
constexpr std::chrono::seconds kLookTime{1};
/// How long another one of the same name has to show up: what the broker keeps comes at once.
constexpr std::chrono::milliseconds kTwinTime{200};
/// Below the robot's own topics, where the broker lets it write.
constexpr const char* kAnswerTopic = "answer";

struct CallOptions {
  std::string robot;
  std::string method;
  double timeout = kCallTime;
};

std::string randomName() {
  std::array<unsigned char, 16> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw ClientError("the system has no random numbers");
  }
  std::string text;
  for (const unsigned char byte : bytes) {
    text += fmt::format("{:02x}", byte);
  }
  return text;
}

/// The one robot of this name, looked up by what the broker keeps. Raises `UnknownName`.
FleetRobot findRobot(const BrokerOptions& options, const std::string& name) {
  FleetBook book;
  const std::string site = siteFilter(options);
  FleetLink link(options,
                 {{messages::fleetFilter(options.root, site, messages::kConnectionTopic), 1}},
                 {[&book](const messages::MqttMessage& message) {
                   book.take(message.topic, message.payload, Clock::now());
                 }});
  link.open();
  const Clock::time_point begin = Clock::now();
  std::optional<Clock::time_point> found;
  link.run(
      [&] {
        if (!found && !book.named(name).empty()) {
          found = Clock::now();
        }
        return found && Clock::now() - *found >= kTwinTime;
      },
      begin + kLookTime);
  link.close();
  const std::vector<const FleetRobot*> named = book.named(name);
  if (named.size() > 1) {
    throw UnknownName("there are robots " + name + " at several sites: name one by --site");
  }
  if (named.empty()) {
    std::vector<std::string> names;
    for (const auto& [key, robot] : book.robots()) {
      names.push_back(robot.name);
    }
    throw UnknownName("there is no robot " + name +
                      formats::didYouMean(formats::nearestNames(name, names)));
  }
  return *named.front();
}

/// Whether there is somebody to answer.
void expectOnline(const FleetRobot& robot) {
  if (robot.connection && robot.connection->presence != messages::FleetPresence::Online) {
    throw ClientError(robot.name + " is " +
                      std::string(messages::presenceName(robot.connection->presence)));
  }
}

/// The words behind the method as an array of JSON; what stands for what is theirs to say.
std::string requestOf(const std::vector<std::string>& words) {
  std::string params = "[";
  for (const std::string& word : words) {
    params += (params.size() > 1 ? "," : "") + jsonOfWord(word, "", "");
  }
  return messages::requestPayload(messages::parseJson(params + "]"));
}

/// Sends one request and waits for its answer.
class FleetCall {
public:
  FleetCall(const BrokerOptions& options, const FleetRobot& robot, const CallOptions& call)
      : fRobot(robot.name), fTimeout(call.timeout), fCorrelation(randomName()),
        fAnswerTopic(options.root + "/" + messages::kFleetVersion + "/" + robot.site + "/" +
                     robot.name + "/" + kAnswerTopic + "/" + fCorrelation),
        fLink(options, {{fAnswerTopic, 1}},
              {[this](const messages::MqttMessage& message) { xTake(message); },
               [this](int id, int reason) { xPublished(id, reason); },
               [](const std::string& why) {
                 if (!why.empty()) {
                   throw ClientError("the broker went away before the answer came: " + why);
                 }
               }}) {
    const std::size_t dot = call.method.find('.');
    fTopic = messages::FleetTopics(options.root, robot.site, robot.name)
                 .rpc(call.method.substr(0, dot), call.method.substr(dot + 1));
  }

  messages::FleetAnswer run(const std::string& payload) {
    fLink.open();
    const Clock::time_point until = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                       std::chrono::duration<double>(fTimeout));
    messages::MqttMessage request{fTopic, payload, 1};
    request.responseTopic = fAnswerTopic;
    request.correlation = fCorrelation;
    // A robot that gets it later must not begin: nobody waits for it any more.
    request.expiry = static_cast<std::uint32_t>(std::ceil(fTimeout));
    fRequest = fLink.publish(request);
    fLink.run([this] { return fAnswer.has_value() || !fProblem.empty(); }, until);
    fLink.close();
    if (!fProblem.empty()) {
      throw ClientError(fProblem);
    }
    if (!fAnswer) {
      throw ClientError(fmt::format("{} has not answered within {:g} s", fRobot, fTimeout));
    }
    return messages::readAnswer(*fAnswer);
  }

private:
  void xTake(const messages::MqttMessage& message) {
    if (message.topic == fAnswerTopic && message.correlation == fCorrelation) {
      fAnswer = message.payload;
    }
  }
  void xPublished(int id, int reason) {
    if (fRequest != id) {
      return;
    }
    if (reason >= messages::kMqttRefused) {
      fProblem = "the broker refuses the request: " + messages::mqttReasonText(reason);
    } else if (reason == messages::kMqttNoSubscriber) {
      fProblem = fRobot + " does not listen for requests";
    }
  }

  const std::string fRobot;
  const double fTimeout;
  const std::string fCorrelation;
  const std::string fAnswerTopic;
  std::string fTopic;
  std::optional<int> fRequest;
  std::optional<std::string> fAnswer;
  std::string fProblem;
  FleetLink fLink;
};

int callRobot(const BrokerOptions& options, const CallOptions& call,
              const std::vector<std::string>& words) {
  checkFleetNames(options);
  if (call.method.find('.') == std::string::npos) {
    throw UnknownName(call.method + " is no method; GKBattery.getBatteryCharge would be one");
  }
  const std::string request = requestOf(words);
  const FleetRobot robot = findRobot(options, call.robot);
  expectOnline(robot);
  messages::FleetAnswer answer;
  try {
    answer = FleetCall(options, robot, call).run(request);
  } catch (const messages::FormatError& error) {
    throw ClientError(robot.name + "'s answer cannot be read: " + error.what());
  }
  if (answer.error) {
    // The same codes as a host's.
    constexpr int noSuchMethod = -32601;
    const std::string text = robot.name + ": " + answer.error->message;
    if (answer.error->code == noSuchMethod) {
      throw UnknownName(text);
    }
    throw ClientError(text);
  }
  if (options.isJson || answer.result != "null") {
    fmt::print("{}\n", answer.result);
  }
  return kSuccess;
}

} // namespace

void addFleetCallCommand(const Command& program, const std::shared_ptr<BrokerOptions>& options) {
  const Command command =
      program.subcommand("call", "Call a bound method of a robot and show its result");
  auto call = std::make_shared<CallOptions>();
  command.option("ROBOT", call->robot, "The robot's name").required().shows("");
  command.option("MODULE.METHOD", call->method, "The method").required().shows("");
  const auto words = command.takesRest();
  command.footer("Behind the method come its arguments: each is a number, true, false, a text, or "
                 "JSON. A robot only\ndoes what its setting GKFleet/Calls allows.");
  addJsonOption(command, *options);
  command.option("--timeout", call->timeout, "Seconds for the answer")
      .within(0.1, 3600.0)
      .shows("SECONDS")
      .showsDefault();
  addBrokerOptions(command, *options);
  command.does([=] { return runFleet([&] { return callRobot(*options, *call, words()); }); });
}

} // namespace gk::app
