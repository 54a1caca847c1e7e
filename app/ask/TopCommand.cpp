#include "app/ask/AskCommands.h"
#include "app/client/HostClient.h"
#include "app/terminal/Table.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

struct TopOptions {
  ClientOptions client;
  double interval = 1.0;
  /// 0 for no end.
  std::uint64_t count = 0;
};

/// "0.35" for 0.00035 s.
std::string milliseconds(const json::value& histogram, const char* name) {
  constexpr double perSecond = 1000;
  const json::value& value = member(histogram, name);
  // Above the largest limit of the histogram there is no number.
  return histogram.is_null() ? "-"
         : value.is_null()   ? "more"
                             : fmt::format("{:.2f}", numberMember(histogram, name) * perSecond);
}

/// One look at the host.
struct Look {
  json::value host;
  std::vector<json::value> modules;
  /// By module; empty for those that are no extractors.
  std::vector<std::string> subscribers;
};

Look lookAt(HostClient& client) {
  Look look;
  look.host = client.getJson("/api/v1/host");
  look.modules = client.getList("/api/v1/modules", "modules");
  for (const json::value& module : look.modules) {
    std::string count;
    const json::value& isExtractor = member(module, "isExtractor");
    if (isExtractor.is_bool() && isExtractor.get_bool()) {
      const json::value info =
          client.call(textMember(module, "name") + ".getSubscribersInfo", "[]");
      count = std::to_string(info.is_array() ? info.get_array().size() : 0);
    }
    look.subscribers.push_back(count);
  }
  return look;
}

/// What has been counted since the look before, a second.
double rate(const json::value& now, const json::value& before, const char* name) {
  const double seconds = numberMember(now, "t_s") - numberMember(before, "t_s");
  return seconds > 0 ? (numberMember(now, name) - numberMember(before, name)) / seconds : 0;
}

const json::value& loopOf(const std::vector<json::value>& loops, const std::string& module) {
  static const json::value nothing;
  for (const json::value& loop : loops) {
    if (textMember(loop, "module") == module) {
      return loop;
    }
  }
  return nothing;
}

std::string draw(const Look& look, const json::value& before) {
  const json::value& host = look.host;
  std::string text = fmt::format(
      "{} {}  up {:.0f} s  events {:.0f} ({:.1f}/s)  keys {:.0f}  clients {:.0f}  calls {:.0f}  "
      "lost: {:.0f} samples, {:.0f} events\n\n",
      textMember(host, "name"), textMember(host, "version"), numberMember(host, "t_s"),
      numberMember(host, "events"), rate(host, before, "events"), numberMember(host, "memoryKeys"),
      numberMember(host, "webSocketClients"), numberMember(host, "callsRunning"),
      numberMember(member(host, "dropped"), "samples"),
      numberMember(member(host, "dropped"), "events"));
  const std::vector<json::value> loops = listMember(host, "loops");
  const std::vector<json::value> loopsBefore = listMember(before, "loops");
  const double seconds = numberMember(host, "t_s") - numberMember(before, "t_s");
  std::vector<std::vector<std::string>> rows{{"MODULE", "SUBSCRIBERS", "TICKS", "TICKS/S",
                                              "TICK ms", "99 %", "LATE ms 99 %", "99.9 %",
                                              "OVERRUNS"}};
  for (std::size_t i = 0; i < look.modules.size(); ++i) {
    const std::string name = textMember(look.modules[i], "name");
    const json::value& loop = loopOf(loops, name);
    std::vector<std::string> row{name, look.subscribers[i]};
    if (!loop.is_null()) {
      const double ticks =
          numberMember(loop, "ticks") - numberMember(loopOf(loopsBefore, name), "ticks");
      const json::value& overruns = member(loop, "overruns");
      row.insert(row.end(), {fmt::format("{:.0f}", numberMember(loop, "ticks")),
                             fmt::format("{:.1f}", seconds > 0 ? ticks / seconds : 0),
                             milliseconds(member(loop, "duration"), "mean_s"),
                             milliseconds(member(loop, "duration"), "p99_s"),
                             milliseconds(member(loop, "lateness"), "p99_s"),
                             milliseconds(member(loop, "lateness"), "p999_s"),
                             overruns.is_null() ? "-" : valueText(overruns)});
    }
    rows.push_back(row);
  }
  return text + tableText(rows);
}

int showTop(const TopOptions& options) {
  HostClient client(options.client);
  if (options.client.isJson) {
    fmt::print("{}\n", client.get("/api/v1/host"));
    return kSuccess;
  }
  // Without a terminal one look with its rates is what a script wants.
  const std::uint64_t count = options.count != 0 || isTerminal() ? options.count : 1;
  json::value before = client.getJson("/api/v1/host");
  for (std::uint64_t shown = 0; count == 0 || shown < count; ++shown) {
    std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
    const Look look = lookAt(client);
    fmt::print("{}{}", isTerminal() ? "\033[H\033[2J" : "", draw(look, before));
    std::fflush(stdout);
    before = look.host;
  }
  return kSuccess;
}

} // namespace

void addTopCommand(const Command& program) {
  const Command command =
      program.subcommand("top", "Show how busy a host is: loops, events, subscribers, clients");
  auto options = std::make_shared<TopOptions>();
  command.option("--interval", options->interval, "Seconds between two looks")
      .within(0.1, 3600.0)
      .shows("SECONDS")
      .showsDefault();
  command.option("--count", options->count, "End after so many looks").shows("N").positive();
  addClientOptions(command, options->client);
  command.does([options] { return runClient([&] { return showTop(*options); }); });
}

} // namespace gk::app
