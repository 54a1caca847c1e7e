#include "app/ask/AskCommands.h"
#include "app/client/HostClient.h"
#include "app/terminal/Table.h"
#include "formats/json/JsonText.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

/// Most seconds by which two clocks may differ, a loop may be silent, a tick may be late, and all
/// device keys may stay the same: real sensors always tremble.
constexpr double kClockTolerance = 1.0;
constexpr double kLongestSilence = 1.0;
constexpr double kLateness = 0.005;
constexpr double kFreshness = 5.0;
/// Seconds that a host has after its start.
constexpr double kSettling = 1.0;

struct Finding {
  std::string what;
  bool isGood = false;
  std::string detail;
};

class Doctor {
public:
  explicit Doctor(const ClientOptions& options) : fClient(options) {}

  std::vector<Finding> examine() {
    try {
      fClient.get("/livez");
    } catch (const ClientError& error) {
      xFind("the host is up", false, error.what());
      return std::move(fFindings);
    }
    xFind("the host is up", true, fClient.address().text());
    xReadiness();
    try {
      const json::value host = xSettledHost();
      xHost(host);
      for (const json::value& loop : listMember(host, "loops")) {
        xLoop(loop);
      }
      xModules();
    } catch (const ClientError& error) {
      xFind("the host can be asked", false, error.what());
    }
    return std::move(fFindings);
  }

private:
  void xFind(std::string what, bool isGood, std::string detail) {
    fFindings.push_back({std::move(what), isGood, std::move(detail)});
  }

  /// A host that has only just come up gets the moment that it needs to see its keys change.
  json::value xSettledHost() {
    json::value host = fClient.getJson("/api/v1/host");
    while (member(member(host, "deviceKeys"), "age_s").is_null() &&
           numberMember(host, "t_s") < kSettling) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      host = fClient.getJson("/api/v1/host");
    }
    return host;
  }

  void xReadiness() {
    try {
      const std::string conditions = fClient.get("/readyz?verbose");
      xFind("it is ready", true, "");
      xOpenConditions(conditions);
    } catch (const ClientError& error) {
      xFind("it is ready", false, error.what());
    }
  }

  /// What a host does not do although it is ready, such as record.
  void xOpenConditions(const std::string& conditions) {
    constexpr std::string_view mark = "[-] ";
    std::istringstream lines(conditions);
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with(mark)) {
        xFind(line.substr(mark.size()), false, "");
      }
    }
  }

  void xHost(const json::value& host) {
    const std::string version = textMember(host, "version");
    xFind("versions agree", version == GK_VERSION,
          fmt::format("host {}, this program " GK_VERSION, version));
    const double here =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    const double difference = numberMember(host, "time_s") - here;
    xFind("clocks agree", std::abs(difference) < kClockTolerance,
          fmt::format("{:+.3f} s", difference));
    const json::value& age = member(member(host, "deviceKeys"), "age_s");
    xFind("device keys are fresh",
          !age.is_null() && numberMember(member(host, "deviceKeys"), "age_s") < kFreshness,
          age.is_null() ? "none has changed yet" : "last change " + valueText(age) + " s ago");
    const json::value& dropped = member(host, "dropped");
    xFind("no client has lost events", numberMember(dropped, "events") <= 0,
          fmt::format("{:.0f} lost", numberMember(dropped, "events")));
    xFind("a loop ticks", !listMember(host, "loops").empty(), "");
  }

  void xLoop(const json::value& loop) {
    const std::string module = textMember(loop, "module");
    const double age = numberMember(loop, "age_s");
    xFind(module + " ticks", age < kLongestSilence, fmt::format("last tick {:.3f} s ago", age));
    const json::value& lateness = member(loop, "lateness");
    if (!lateness.is_null()) {
      const json::value& worst = member(lateness, "p999_s");
      xFind(module + " is on time",
            !worst.is_null() && numberMember(lateness, "p999_s") <= kLateness,
            fmt::format("99.9 % of its ticks are at most {} s late",
                        worst.is_null() ? "a great many" : valueText(worst)));
    }
  }

  void xModules() {
    for (const json::value& module : fClient.getList("/api/v1/modules", "modules")) {
      const std::string name = textMember(module, "name");
      try {
        fClient.get("/api/v1/modules/" + escapedPath(name));
        xFind(name + " answers", true, "");
      } catch (const ClientError& error) {
        xFind(name + " answers", false, error.what());
      }
    }
  }

  HostClient fClient;
  std::vector<Finding> fFindings;
};

void print(const std::vector<Finding>& findings, bool isJson) {
  if (!isJson) {
    for (const Finding& finding : findings) {
      const char* mark = finding.isGood ? (isTerminal() ? "\033[32mok\033[0m  " : "ok  ")
                                        : (isTerminal() ? "\033[31mNO\033[0m  " : "NO  ");
      fmt::print("{}{}{}{}\n", mark, finding.what, finding.detail.empty() ? "" : ": ",
                 finding.detail);
    }
    return;
  }
  std::string text = "[";
  for (const Finding& finding : findings) {
    text += text.size() > 1 ? "," : "";
    text += R"({"what":)";
    formats::appendJsonString(text, finding.what);
    text += fmt::format(R"(,"isGood":{},"detail":)", finding.isGood);
    formats::appendJsonString(text, finding.detail);
    text += "}";
  }
  fmt::print("{}]\n", text);
}

int examine(const ClientOptions& options) {
  const std::vector<Finding> findings = Doctor(options).examine();
  print(findings, options.isJson);
  for (const Finding& finding : findings) {
    if (!finding.isGood) {
      return kFailure;
    }
  }
  return kSuccess;
}

} // namespace

void addDoctorCommand(const Command& program) {
  const Command command = program.subcommand(
      "doctor", "Check a host: up, ready, fresh, on time; exit code 1 when something is wrong");
  auto options = std::make_shared<ClientOptions>();
  addClientOptions(command, *options);
  command.does([options] { return runClient([&] { return examine(*options); }); });
}

} // namespace gk::app
