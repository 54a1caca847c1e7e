#include "app/Commands.h"
#include "app/Session.h"

#include <memory>

namespace gk::app {

void addReplayCommand(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "replay", "Run recordings through the module library in virtual time, as fast as possible");
  auto options = std::make_shared<SessionOptions>();
  addSessionOptions(*command, *options);
  command->get_option("FILE")->required();
  command->callback([options, &action] {
    action = [options] {
      runtime::HostOptions host = hostOptions(*options);
      host.isVirtual = true;
      host.endsWithInput = !host.until.has_value();
      SessionView view;
      view.hasProgressBar = true;
      return runSession(*options, host, view);
    };
  });
}

} // namespace gk::app
