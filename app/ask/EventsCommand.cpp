#include "app/ask/AskCommands.h"
#include "app/client/HostClient.h"
#include "app/client/HostNames.h"
#include "app/client/HostStream.h"
#include "app/client/Words.h"
#include "app/terminal/Table.h"
#include "formats/json/Json.h"
#include "formats/json/JsonText.h"
#include "formats/text/NamePattern.h"
#include "formats/text/Printable.h"

#include <fmt/format.h>

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
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

int showEvents(const LiveOptions& options) {
  HostClient client(options.client);
  const std::string pattern = options.names.empty() ? std::string() : options.names.front();
  if (const std::string missing = missingEvent(client, pattern); !missing.empty()) {
    fmt::print(stderr, "gk: waiting: so far {}\n", formats::printable(missing));
  }
  std::uint64_t shown = 0;
  HostStream::Handlers handlers;
  handlers.wants = [](const HostChannel& channel) { return channel.topic == "/events"; };
  handlers.message = [&](const HostChannel&, std::uint64_t, std::string_view payload) {
    const json::value event = formats::parseJson(payload);
    const std::string name = textMember(event, "name");
    if (!formats::isMeant(name, pattern)) {
      return true;
    }
    if (options.client.isJson) {
      fmt::print("{}\n", payload);
    } else {
      fmt::print("{:10.3f}  {:<7}  {:<34} {}\n", numberMember(event, "t_s"),
                 formats::printable(textMember(event, "kind")), formats::printable(name),
                 formats::printable(valueText(member(event, "value"))));
    }
    std::fflush(stdout);
    return ++shown != options.count;
  };
  HostStream(client).run({}, handlers);
  return kSuccess;
}

/// The present values of some keys: redrawn in place on a terminal, else a line for each change.
class WatchView {
public:
  WatchView(std::vector<std::string> keys, bool isJson) : fKeys(std::move(keys)), fIsJson(isJson) {}

  void show(const std::vector<json::value>& changed) {
    for (const json::value& one : changed) {
      fValues[textMember(one, "name")] = valueText(member(one, "value"));
    }
    if (fIsJson || !isTerminal()) {
      xPrintLines(changed);
    } else {
      xRedraw();
    }
    std::fflush(stdout);
  }

private:
  void xPrintLines(const std::vector<json::value>& changed) const {
    for (const json::value& one : changed) {
      const std::string name = textMember(one, "name");
      if (fIsJson) {
        std::string text;
        formats::appendJsonString(text, name);
        fmt::print("{{{}:{}}}\n", text, fValues.at(name));
      } else {
        fmt::print("{}  {}\n", formats::printable(name), formats::printable(fValues.at(name)));
      }
    }
  }

  void xRedraw() {
    std::vector<std::vector<std::string>> rows{{"KEY", "VALUE"}};
    for (const std::string& key : fKeys) {
      const auto found = fValues.find(key);
      rows.push_back({key, found != fValues.end() ? found->second : "-"});
    }
    // Up to where the last one began, and over it: nothing flickers.
    if (std::exchange(fIsDrawn, true)) {
      fmt::print("\033[{}A\033[J", rows.size());
    }
    fmt::print("{}", tableText(rows));
  }

  const std::vector<std::string> fKeys;
  const bool fIsJson;
  std::map<std::string, std::string> fValues;
  bool fIsDrawn = false;
};

int watchKeys(const LiveOptions& options) {
  HostClient client(options.client);
  // Says what is wrong with a name before anything is watched.
  std::vector<std::string> keys;
  for (const json::value& key : keysNamed(client, options.names)) {
    keys.push_back(textMember(key, "key"));
  }
  WatchView view(keys, options.client.isJson);
  std::uint64_t shown = 0;
  HostStream::Handlers handlers;
  handlers.values = [&](const std::vector<json::value>& changed) {
    view.show(changed);
    return ++shown != options.count;
  };
  HostStream(client).run(keys, handlers);
  return kSuccess;
}

} // namespace

void addEventsCommand(const Command& program) {
  const Command command = program.subcommand("events", "Show events as they are raised");
  auto options = std::make_shared<LiveOptions>();
  command.option("PATTERN", options->names, "A part of their names, or a pattern with * and ?")
      .shows("")
      .atMostOne();
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
