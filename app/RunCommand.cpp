#include "app/Commands.h"
#include "app/RecordOptions.h"
#include "app/Session.h"
#include "formats/Numbers.h"

#include <memory>
#include <optional>
#include <string>

namespace gk::app {

namespace {

struct RunOptions {
  SessionOptions session;
  RecordOptions record;
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
  addRecordOptions(*command, options->record);
  command->add_flag("--loop", options->isLoop, "Start the files again at their end");
  command->add_option("--for", options->limit, "End after this many seconds of wall time")
      ->check(CLI::Range(0.0, 1e9).description(""))
      ->type_name("SECONDS");
  command->add_option("--speed", options->speed, "real, or max: virtual time, as fast as possible")
      ->check(CLI::IsMember({"real", "max"}).description(""))
      ->type_name("real|max")
      ->capture_default_str();
  command->callback([options, &action] {
    action = [options] {
      runtime::HostOptions host = hostOptions(options->session);
      host.isVirtual = options->speed == "max";
      host.isLoop = options->isLoop;
      SessionView view;
      view.isAlwaysReadable = true;
      view.isInterruptible = true;
      view.record = recorderOptions(options->record, host);
      if (options->limit) {
        view.wallLimit = std::chrono::microseconds(*formats::toMicros(*options->limit));
      }
      return runSession(options->session, host, view);
    };
  });
}

} // namespace gk::app
