#include "app/Commands.h"
#include "app/Realtime.h"
#include "app/RecordOptions.h"
#include "app/RobotKeys.h"
#include "app/Session.h"
#include "formats/Numbers.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <optional>
#include <string>

namespace gk::app {

namespace {

struct RunOptions {
  SessionOptions session;
  RecordOptions record;
  ListenOptions listen;
  bool isLoop = false;
  std::optional<double> limit;
  std::string speed = "real";
  bool isRealtime = false;
  std::string robot;
  std::uint64_t seed = devices::SimulationOptions().seed;
  bool isWithoutNoise = false;
  bool isWithoutTour = false;
  bool isKeysAsked = false;
};

constexpr const char* kSimulated = "sim";

/// Recordings bring their own values; whoever brings nothing gets a robot.
bool isSimulated(const RunOptions& options) {
  return options.robot.empty() ? options.session.files.empty() : options.robot == kSimulated;
}

void addRobotOptions(CLI::App& command, RunOptions& options) {
  command
      .add_option("--robot", options.robot,
                  "sim: the simulated robot (what you get without FILE), or none")
      ->check(CLI::IsMember({kSimulated, "none"}).description(""))
      ->type_name("sim|none");
  command.add_option("--seed", options.seed, "Where the simulated robot's sensor noise begins")
      ->type_name("NUMBER")
      ->capture_default_str();
  command.add_flag("--no-noise", options.isWithoutNoise, "Give the simulated robot exact sensors");
  command.add_flag("--no-tour", options.isWithoutTour,
                   "Leave the simulated robot standing instead of playing the tour");
  command.add_flag("--keys", options.isKeysAsked, "List the keys that the robot serves, and end");
}

int run(const RunOptions& options) {
  const bool isRobot = isSimulated(options);
  if (options.isKeysAsked) {
    listKeys(isRobot);
    return kSuccess;
  }
  runtime::HostOptions host = hostOptions(options.session);
  host.isVirtual = options.speed == "max";
  if (host.isVirtual && options.listen.isAddressGiven) {
    fmt::print(stderr, "gk: --listen needs real time, --speed max has none\n");
    return kBadInput;
  }
  host.isLoop = options.isLoop;
  if (options.isRealtime && !host.isVirtual) {
    host.loopPriority = prepareForRealtime();
  }
  if (isRobot) {
    host.simulation = {.seed = options.seed, .isNoisy = !options.isWithoutNoise};
    if (host.files.empty() && !options.isWithoutTour) {
      host.files.push_back(tourFile());
      host.isLoop = true;
    }
  }
  SessionView view;
  if (!host.isVirtual) {
    view.listen = options.listen;
  }
  view.isAlwaysReadable = true;
  view.isInterruptible = true;
  view.record = recorderOptions(options.record, host);
  host.turnPatience = std::chrono::milliseconds(std::llround(options.record.patience * 1e3));
  if (options.limit) {
    view.wallLimit = std::chrono::microseconds(*formats::toMicros(*options.limit));
  }
  return runSession(options.session, host, view);
}

} // namespace

void addRunCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "run", "Host the module library on a robot in real time and show what it reports");
  auto options = std::make_shared<RunOptions>();
  addSessionOptions(*command, options->session);
  addRecordOptions(*command, options->record);
  addRobotOptions(*command, *options);
  command->add_flag("--loop", options->isLoop, "Start the files again at their end");
  command->add_option("--for", options->limit, "End after this many seconds of wall time")
      ->check(CLI::Range(0.0, 1e9).description(""))
      ->type_name("SECONDS");
  command->add_option("--speed", options->speed, "real, or max: virtual time, as fast as possible")
      ->check(CLI::IsMember({"real", "max"}).description(""))
      ->type_name("real|max")
      ->capture_default_str();
  addListenOptions(*command, options->listen);
  command->add_flag("--realtime", options->isRealtime,
                    "Run the loops with real-time priority and locked memory, where permitted");
  command->callback([options, &action] { action = [options] { return run(*options); }; });
}

} // namespace gk::app
