#include "app/Commands.h"
#include "app/Session.h"
#include "formats/Numbers.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <sys/mman.h>

namespace gk::app {

namespace {

struct RunOptions {
  SessionOptions session;
  ListenOptions listen;
  bool isLoop = false;
  std::optional<double> limit;
  std::string speed = "real";
  bool isRealtime = false;
};

/// Priority of the sensor loop: above everything ordinary, below the kernel's own threads.
constexpr int kLoopPriority = 40;

/// Locks the process's memory and finds out whether loops may have a priority. Warns of what is not
/// permitted. Returns the priority, 0 for none.
int prepareForRealtime() {
  if (mlockall(MCL_CURRENT | MCL_FUTURE) != 0) {
    fmt::print(stderr,
               "gk: --realtime: memory cannot be locked ({}); a tick may wait for the disk\n",
               std::strerror(errno));
  }
  // The present thread only tries it out: its children would inherit the priority.
  const sched_param wanted{kLoopPriority};
  const sched_param ordinary{0};
  const int refused = pthread_setschedparam(pthread_self(), SCHED_FIFO, &wanted);
  if (refused != 0) {
    fmt::print(stderr,
               "gk: --realtime: no real-time priority ({}); the loop runs like any other thread\n",
               std::strerror(refused));
    return 0;
  }
  pthread_setschedparam(pthread_self(), SCHED_OTHER, &ordinary);
  return kLoopPriority;
}

} // namespace

void addRunCommand(CLI::App& app, Action& action) {
  CLI::App* command =
      app.add_subcommand("run", "Host the module library in real time and show what it reports");
  auto options = std::make_shared<RunOptions>();
  addSessionOptions(*command, options->session);
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
  command->callback([options, &action] {
    action = [options] {
      runtime::HostOptions host = hostOptions(options->session);
      host.isVirtual = options->speed == "max";
      host.isLoop = options->isLoop;
      if (host.isVirtual && options->listen.isAddressGiven) {
        fmt::print(stderr, "gk: --listen needs real time, --speed max has none\n");
        return static_cast<int>(kBadInput);
      }
      if (options->isRealtime && !host.isVirtual) {
        host.loopPriority = prepareForRealtime();
      }
      SessionView view;
      if (!host.isVirtual) {
        view.listen = options->listen;
      }
      view.isAlwaysReadable = true;
      view.isInterruptible = true;
      if (options->limit) {
        view.wallLimit = std::chrono::microseconds(*formats::toMicros(*options->limit));
      }
      return runSession(options->session, host, view);
    };
  });
}

} // namespace gk::app
