#include "app/Commands.h"
#include "app/Session.h"
#include "formats/Numbers.h"

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>

namespace gk::app {

namespace {

struct RunOptions {
  SessionOptions session;
  ListenOptions listen;
  bool isLoop = false;
  std::optional<double> limit;
  std::string speed = "real";
};

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
  command->callback([options, &action] {
    action = [options] {
      runtime::HostOptions host = hostOptions(options->session);
      host.isVirtual = options->speed == "max";
      host.isLoop = options->isLoop;
      if (host.isVirtual && options->listen.isAddressGiven) {
        fmt::print(stderr, "gk: --listen needs real time, --speed max has none\n");
        return static_cast<int>(kBadInput);
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
