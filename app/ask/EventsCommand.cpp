#include "app/ask/AskCommands.h"
#include "app/ask/WatchView.h"
#include "app/client/HostClient.h"
#include "app/client/HostNames.h"
#include "app/client/HostStream.h"
#include "app/client/Words.h"
#include "app/terminal/LiveStyle.h"
#include "app/terminal/TerminalState.h"
#include "devices/meaning/EventWords.h"
#include "formats/text/LiveRows.h"
#include "formats/text/NamePattern.h"
#include "formats/text/Printable.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

/// Options that both live commands have.
struct LiveOptions {
  ClientOptions client;
  std::vector<std::string> names;
  /// 0 for no end.
  std::uint64_t count = 0;
};

void addLiveOptions(const Command& command, LiveOptions& options, const char* what) {
  command.option("--count", options.count, what).shows("N").positive();
  addClientOptions(command, options.client);
}

/// Without patterns all are.
bool isWanted(const std::vector<std::string>& patterns, const std::string& name) {
  return patterns.empty() || std::ranges::any_of(patterns, [&name](const std::string& pattern) {
           return formats::isMeant(name, pattern);
         });
}

constexpr const char* kMicroEvent = "micro";

int showEvents(const LiveOptions& options) {
  HostClient client(options.client);
  for (const std::string& pattern : options.names) {
    if (const std::string missing = missingEvent(client, pattern); !missing.empty()) {
      fmt::print(stderr, "gk: waiting: so far {}\n", formats::printable(missing));
    }
  }
  formats::LiveRows rows(liveStyle());
  const OpenLine line;
  std::uint64_t shown = 0;
  HostStream::Handlers handlers;
  handlers.wants = [](const HostChannel& channel) { return channel.topic == "/events"; };
  handlers.message = [&](const HostChannel&, std::uint64_t, std::string_view payload) {
    const json::value event = messages::parseJson(payload);
    const std::string name = textMember(event, "name");
    if (!isWanted(options.names, name)) {
      return true;
    }
    if (options.client.isJson) {
      fmt::print("{}\n", payload);
    } else {
      formats::LiveRow row;
      row.time = numberMember(event, "t_s");
      row.kind = formats::printable(textMember(event, "kind"));
      row.name = formats::printable(name);
      row.value = formats::printable(valueText(member(event, "value")));
      row.words = formats::printable(
          devices::eventSentence(name, messages::valueFromJson(member(event, "value"))));
      row.isEvent = true;
      row.isMicro = row.kind == kMicroEvent;
      std::string text;
      rows.append(text, row);
      fmt::print("{}", text);
    }
    std::fflush(stdout);
    return ++shown != options.count;
  };
  const auto finish = [&rows] {
    std::string text;
    rows.finish(text);
    fmt::print("{}", text);
    std::fflush(stdout);
  };
  try {
    HostStream(client).run({}, handlers);
  } catch (const ClientError&) {
    finish();
    throw;
  }
  finish();
  return kSuccess;
}

int watchKeys(const LiveOptions& options) {
  HostClient client(options.client);
  // Says what is wrong with a name before anything is watched.
  WatchView view(client, keysNamed(client, options.names), options.client.isJson);
  std::uint64_t shown = 0;
  HostStream::Handlers handlers;
  handlers.values = [&](const std::vector<json::value>& changed) {
    view.show(changed);
    return ++shown != options.count;
  };
  handlers.meanwhile = [&view] {
    view.refresh();
    return true;
  };
  HostStream(client).run(view.keys(), handlers);
  return kSuccess;
}

} // namespace

void addEventsCommand(const Command& program) {
  const Command command = program.subcommand("events", "Show events as they are raised");
  auto options = std::make_shared<LiveOptions>();
  command.option("PATTERN", options->names, "Parts of their names, or patterns with * and ?")
      .shows("");
  addLiveOptions(command, *options, "End after so many events");
  command.does([options] { return runClient([&] { return showEvents(*options); }); });
}

void addWatchCommand(const Command& program) {
  const Command command =
      program.subcommand("watch", "Show the values of memory keys as they change");
  auto options = std::make_shared<LiveOptions>();
  command.option("KEY", options->names, kKeyPatterns).required().shows("");
  addLiveOptions(command, *options, "End after so many changes");
  command.does([options] { return runClient([&] { return watchKeys(*options); }); });
}

} // namespace gk::app
