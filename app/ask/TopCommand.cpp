#include "app/ask/AskCommands.h"
#include "app/ask/LoopLimits.h"
#include "app/client/HostClient.h"
#include "app/terminal/Screen.h"
#include "app/terminal/Table.h"
#include "app/terminal/TerminalState.h"
#include "app/terminal/Units.h"
#include "formats/text/Printable.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

constexpr const char* kResource = "/api/v1/host?verbose";

constexpr const char* kMark = "!";

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
  /// What matters now, worst first.
  json::value verdict;
};

Look lookAt(HostClient& client) {
  Look look;
  look.host = client.getJson(kResource);
  look.verdict = verdictOf(client);
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

/// A figure, marked when it is beyond its limit.
std::string marked(std::string text, bool isBeyond) {
  return isBeyond ? std::move(text) + kMark : std::move(text);
}

/// The lines of a look: at most 80 columns, but for the names of modules and clients.
class TopView {
public:
  std::string text(const Look& look, const json::value& before) {
    return xHead(look.host, before) + xVerdict(look) + "\n" + xLoops(look, before) + xHistory() +
           xClients(look.host);
  }

private:
  /// Looks that are kept, and how high one can stand in a line.
  static constexpr std::size_t kHistory = 40;
  static constexpr std::array<const char*, 8> kBars = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};

  static std::string xHead(const json::value& host, const json::value& before) {
    return fmt::format("{} {}   up {}   events {:.0f} ({:.1f}/s)   keys {:.0f}   calls {:.0f}\n",
                       textMember(host, "name"), textMember(host, "version"),
                       durationText(numberMember(host, "t_s")), numberMember(host, "events"),
                       rate(host, before, "events"), numberMember(host, "memoryKeys"),
                       numberMember(host, "callsRunning"));
  }

  /// A line for each of what matters most.
  static std::string xVerdict(const Look& look) {
    constexpr std::size_t most = 3;
    std::string text;
    const json::array none;
    const json::array& matters = look.verdict.is_array() ? look.verdict.get_array() : none;
    for (std::size_t i = 0; i < std::min(matters.size(), most); ++i) {
      const std::string advice = textMember(matters[i], "advice");
      text += fmt::format(
          "{}{}, for {}{}\n", formats::printable(textMember(matters[i], "text")),
          numberMember(matters[i], "level") > 1 ? kMark : "",
          durationText(numberMember(look.host, "t_s") - numberMember(matters[i], "since")),
          advice.empty() ? "" : ": " + formats::printable(advice));
    }
    if (matters.size() > most) {
      text += fmt::format("and {} more: gk doctor\n", matters.size() - most);
    }
    return text;
  }

  std::string xLoops(const Look& look, const json::value& before) {
    const std::vector<json::value> loops = listMember(look.host, "loops");
    const std::vector<json::value> loopsBefore = listMember(before, "loops");
    const double seconds = numberMember(look.host, "t_s") - numberMember(before, "t_s");
    std::vector<std::vector<std::string>> rows{
        {"MODULE", "SUBS", "TICKS/S", "WORK ms", "99 %", "LATE 99 %", "99.9 %", "OVERRUNS"}};
    for (std::size_t i = 0; i < look.modules.size(); ++i) {
      const std::string name = textMember(look.modules[i], "name");
      std::vector<std::string> row{name, look.subscribers[i]};
      if (const json::value& loop = loopOf(loops, name); !loop.is_null()) {
        const double ticks =
            numberMember(loop, "ticks") - numberMember(loopOf(loopsBefore, name), "ticks");
        const std::vector<std::string> cells = xLoop(loop, seconds > 0 ? ticks / seconds : 0);
        row.insert(row.end(), cells.begin(), cells.end());
      }
      rows.push_back(row);
    }
    return tableText(rows);
  }

  /// The figures of the last minute, where the host tells of it.
  std::vector<std::string> xLoop(const json::value& loop, double ticks) {
    const json::value& recent = member(loop, "lastMinute");
    const json::value& figures = recent.is_null() ? loop : recent;
    const double asked = numberMember(recent, "askedRate_hz");
    std::deque<double>& history = fHistory[textMember(loop, "module")];
    history.push_back(asked > 0 ? ticks / asked : 1);
    if (history.size() > kHistory) {
      history.pop_front();
    }
    const json::value& late = member(figures, "lateness");
    const json::value& worst = member(late, "p999_s");
    const bool isLate =
        late.is_object() && (worst.is_null() || numberMember(late, "p999_s") > kLatenessLimit);
    const json::value& overruns = member(figures, "overruns");
    return {marked(fmt::format("{:.1f}", ticks), ticks < kLeastRate * asked),
            milliseconds(member(figures, "duration"), "mean_s"),
            milliseconds(member(figures, "duration"), "p99_s"),
            milliseconds(late, "p99_s"),
            marked(milliseconds(late, "p999_s"), isLate),
            overruns.is_null()
                ? "-"
                : marked(valueText(overruns), numberMember(figures, "overruns") > 0)};
  }

  /// Ticks of each loop from look to look, as shares of what it asked for.
  std::string xHistory() const {
    std::string text;
    for (const auto& [module, shares] : fHistory) {
      if (shares.size() < 2) {
        continue;
      }
      text += fmt::format("{}{} ticks ", text.empty() ? "\n" : "", module);
      for (const double share : shares) {
        const double height = std::clamp(share, 0.0, 1.0) * static_cast<double>(kBars.size() - 1);
        text += kBars[static_cast<std::size_t>(std::lround(height))];
      }
      text += '\n';
    }
    return text;
  }

  static std::string xClients(const json::value& host) {
    const json::value& all = member(host, "dropped");
    const double lostEvents = numberMember(all, "events");
    std::string text =
        fmt::format("\nclients {:.0f}   lost by all so far: {:.0f} samples, {}\n",
                    numberMember(host, "webSocketClients"), numberMember(all, "samples"),
                    marked(fmt::format("{:.0f} events", lostEvents), lostEvents > 0));
    const std::vector<json::value> clients = listMember(host, "clients");
    if (clients.empty()) {
      return text;
    }
    std::vector<std::vector<std::string>> rows{{"LOST SAMPLES", "EVENTS", "CLIENT"}};
    for (const json::value& client : clients) {
      const double events = numberMember(client, "lostEvents");
      rows.push_back({fmt::format("{:.0f}", numberMember(client, "lostSamples")),
                      marked(fmt::format("{:.0f}", events), events > 0),
                      textMember(client, "name")});
    }
    return text + tableText(rows);
  }

  std::map<std::string, std::deque<double>> fHistory;
};

/// Words that are marked stand out.
std::string withColours(const std::string& text) {
  if (!hasColours()) {
    return text;
  }
  std::string coloured;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find_first_of(" \n", begin), text.size());
    const std::string word = text.substr(begin, end - begin);
    coloured += word.ends_with(kMark) ? "\x1b[1;31m" + word + "\x1b[0m" : word;
    coloured += text.substr(end, 1);
    begin = end + 1;
  }
  return coloured;
}

/// Looks again and again on a terminal, until a key or a number of looks ends it.
class TopScreen {
public:
  explicit TopScreen(const TopOptions& options) : fOptions(options), fClient(options.client) {}

  void run() {
    json::value before = fClient.getJson(kResource);
    for (std::uint64_t shown = 0; fOptions.count == 0 || shown < fOptions.count; ++shown) {
      if (!xWait()) {
        return;
      }
      const Look look = lookAt(fClient);
      fText = withColours(fView.text(look, before)) + kHelp;
      fPicture.draw(fText);
      before = look.host;
    }
  }

private:
  using Clock = std::chrono::steady_clock;

  static constexpr const char* kHelp = "\nq: quit   space: look now\n";

  /// Until the next look. False when there is to be none.
  bool xWait() {
    constexpr std::chrono::milliseconds patience{100};
    const Clock::time_point due =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(
                           std::chrono::duration<double>(fOptions.interval));
    while (Clock::now() < due) {
      const std::optional<char> key = KeyInput::next(patience);
      if (key == 'q' || key == 'Q') {
        return false;
      }
      if (key == ' ') {
        return true;
      }
      if (fPicture.isOutgrown()) {
        fPicture.draw(fText);
      }
    }
    return true;
  }

  const TopOptions& fOptions;
  HostClient fClient;
  const KeyInput fKeys;
  TopView fView;
  Picture fPicture;
  std::string fText;
};

int showTop(const TopOptions& options) {
  if (options.client.isJson) {
    fmt::print("{}\n", HostClient(options.client).get("/api/v1/host"));
    return kSuccess;
  }
  if (isTerminal()) {
    TopScreen(options).run();
    return kSuccess;
  }
  HostClient client(options.client);
  TopView view;
  // One look with its rates is what a script wants.
  json::value before = client.getJson(kResource);
  for (std::uint64_t shown = 0; shown < std::max<std::uint64_t>(options.count, 1); ++shown) {
    std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
    const Look look = lookAt(client);
    fmt::print("{}", view.text(look, before));
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
