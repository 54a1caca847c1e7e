#include "app/run/FleetOptions.h"
#include "app/run/Realtime.h"
#include "app/run/RobotKeys.h"
#include "app/run/Ros2Options.h"
#include "app/run/RunCommands.h"
#include "app/session/Complaints.h"
#include "app/session/FileTests.h"
#include "app/session/RecordOptions.h"
#include "app/session/Session.h"
#include "formats/text/InputError.h"
#include "formats/text/Printable.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace gk::app {

namespace {

constexpr const char* kReal = "real";
constexpr const char* kMax = "max";

struct RunOptions {
  SessionOptions session;
  RecordOptions record;
  ListenOptions listen;
  Ros2Options ros2;
  FleetOptions fleet;
  bool isLoop = false;
  std::optional<double> limit;
  std::string speed = kReal;
  bool isRealtime = false;
  bool isLockstep = false;
  std::string robot;
  std::uint64_t seed = devices::SimulationOptions().seed;
  bool isWithoutNoise = false;
  bool isWithoutTour = false;
  bool isKeysAsked = false;
  std::vector<std::string> limits;
};

constexpr const char* kSimulated = "sim";

/// Recordings bring their own values; whoever brings nothing gets a robot.
bool isSimulated(const RunOptions& options) {
  return options.robot.empty() ? options.session.files.empty() : options.robot == kSimulated;
}

void addRobotOptions(const Command& command, RunOptions& options) {
  command.section("Robot");
  command
      .option("--robot", options.robot,
              "sim: the simulated robot (what you get without FILE), or none")
      .oneOf({kSimulated, "none"})
      .shows("sim|none");
  command.option("--seed", options.seed, "Where the simulated robot's sensor noise begins")
      .shows("NUMBER")
      .showsDefault();
  command.flag("--no-noise", options.isWithoutNoise, "Give the simulated robot exact sensors");
  command.flag("--no-tour", options.isWithoutTour,
               "Leave the simulated robot standing instead of playing the tour");
  command.flag("--keys", options.isKeysAsked, "List the keys that the robot serves, and end");
}

/// Which robot a run has, for people.
std::string robotText(const runtime::HostOptions& host, bool isOnTour) {
  if (host.simulation) {
    return fmt::format("simulated, seed {}{}{}", host.simulation->seed,
                       host.simulation->isNoisy ? "" : ", exact sensors",
                       isOnTour ? ", on a tour of what it can notice" : "");
  }
  std::string files;
  for (const std::string& file : host.files) {
    files += (files.empty() ? " " : ", ") + formats::printable(file);
  }
  return files.empty() ? "none, all keys stay as they are" : "what is recorded in" + files;
}

/// Speeds beyond are nobody's wish: a tick would have microseconds, or last for minutes.
constexpr double kSlowest = 0.001;
constexpr double kFastest = 1000.0;

/// What is wrong with a --speed; empty for nothing.
std::string checkSpeed(const std::string& text) {
  const std::optional<double> number = messages::parseDouble(text);
  const bool isOne =
      text == kReal || text == kMax || (number && *number >= kSlowest && *number <= kFastest);
  return isOne ? std::string()
               : fmt::format("{} is none of real, max and numbers from {} to {}", text, kSlowest,
                             kFastest);
}

/// What is wrong with a --limit; empty for nothing.
std::string checkLimit(const std::string& text) {
  devices::ClientLimits ignored;
  return devices::readLimit(text, ignored);
}

/// The libraries that options ask for by other names.
std::vector<const ListeningLibrary*> listenersOf(const RunOptions& options) {
  std::vector<const ListeningLibrary*> listeners;
  if (options.ros2.isOn) {
    listeners.push_back(&ros2Library());
  }
  if (options.fleet.isOn()) {
    listeners.push_back(&fleetLibrary());
  }
  return listeners;
}

int run(RunOptions options) {
  const bool isRobot = isSimulated(options);
  const bool isOnTour =
      isRobot && options.session.files.empty() && !options.isWithoutTour && !options.isLockstep;
  if (options.isKeysAsked) {
    listKeys(isRobot);
    return kSuccess;
  }
  FileTests tests;
  try {
    tests = readFileTests(options.session.files, options.session.isExpectingNothing);
    applyFileOptions(tests, options.session);
  } catch (const formats::InputError& error) {
    complainAsItStands(error.what());
    return kBadInput;
  }
  runtime::HostOptions host = hostOptions(options.session);
  host.beside = tests.companions;
  host.companions = tests.ends;
  host.isVirtual = options.isLockstep || options.speed == kMax;
  host.speed = messages::parseDouble(options.speed).value_or(1.0);
  if (host.isVirtual && !options.isLockstep && options.listen.isAddressGiven) {
    complain("--listen needs real time, --speed max has none");
    return kBadInput;
  }
  if (options.isLockstep && options.session.out == "-") {
    complain("--out: with --lockstep standard output is for answers");
    return kBadInput;
  }
  const std::vector<const ListeningLibrary*> listeners = listenersOf(options);
  for (const ListeningLibrary* library : listeners) {
    if (const std::string why = whyNoListener(*library, host, options.isLockstep); !why.empty()) {
      complain(why);
      return kBadInput;
    }
  }
  applyRos2Settings(options.ros2, host);
  host.isLoop = options.isLoop;
  for (const std::string& limit : options.limits) {
    devices::readLimit(limit, host.limits);
  }
  if (options.isRealtime && !host.isVirtual) {
    host.loopPriority = prepareForRealtime();
  }
  if (isRobot) {
    host.simulation = {.seed = options.seed, .isNoisy = !options.isWithoutNoise};
    if (isOnTour) {
      host.files.push_back(tourFile());
      host.isLoop = true;
    }
  }
  SessionView view;
  view.judge.expectations = std::move(tests.expectations);
  view.judge.isAtOnce = true;
  if (options.isLockstep && options.listen.isAddressGiven) {
    view.listen = options.listen;
  }
  if (!host.isVirtual) {
    view.listen = options.listen;
    view.robot = robotText(host, isOnTour);
  }
  view.isAlwaysReadable = true;
  view.isLockstep = options.isLockstep;
  view.isInterruptible = true;
  view.record = recorderOptions(options.record, host);
  // A recording holds what the robot did; who was told of it is no part of that, and may be missing
  // where it is repeated.
  try {
    for (const ListeningLibrary* library : listeners) {
      addListener(*library, host);
    }
  } catch (const runtime::LoadError& error) {
    complain(error.what());
    return kFailure;
  }
  if (options.fleet.isOn()) {
    applyFleetSettings(options.fleet, host);
    view.fleet = fleetPlace(options.fleet);
  }
  host.turnPatience = std::chrono::milliseconds(std::llround(options.record.patience * 1e3));
  if (options.limit) {
    view.wallLimit = std::chrono::microseconds(*messages::toMicros(*options.limit));
  }
  return runSession(options.session, host, view);
}

} // namespace

void addRunCommand(const Command& program) {
  const Command command = program.subcommand(
      "run", "Host the module library on a robot in real time and show what it reports");
  auto options = std::make_shared<RunOptions>();
  addSessionOptions(command, options->session);
  addRecordOptions(command, options->record);
  addRobotOptions(command, *options);
  command.section("Time");
  command.flag("--loop", options->isLoop, "Start the files again at their end");
  command
      .option("--for", options->limit,
              "End after this many seconds of wall time, whatever the speed")
      .within(0.0, 1e9)
      .shows("SECONDS");
  const Option speed =
      command
          .option(
              "--speed", options->speed,
              "real; 2: twice as fast, 0.5: half as fast; max: virtual time, as fast as possible")
          .checked(checkSpeed)
          .shows("real|max|NUMBER")
          .showsDefault();
  command
      .flag("--lockstep", options->isLockstep,
            "Virtual time that moves on request: JSON-RPC on standard input and output, a line a "
            "message, with Clock.advance, Memory.get and Memory.set besides the modules' methods")
      .excludes(speed)
      .excludes(command.argument("--until"));
  command.flag("--realtime", options->isRealtime,
               "Run the loops with real-time priority and locked memory, where permitted");
  addListenOptions(command, options->listen);
  command
      .option("--limit", options->limits,
              "What clients may leave behind and ask for: names, values, answer (bytes), keys, "
              "events (how many)")
      .checked(checkLimit)
      .shows("NAME=N")
      .onceEach();
  addRos2Options(command, options->ros2);
  addFleetOptions(command, options->fleet);
  command.footer("Examples:\n"
                 "  gk run                             the simulated robot on its tour\n"
                 "  gk run --no-tour --seed 7          the same robot, standing\n"
                 "  gk run --loop walk.csv             a recording, again and again\n"
                 "  gk run --record-on '*Touched' --record touches.mcap\n");
  command.does([options] { return run(*options); });
}

} // namespace gk::app
