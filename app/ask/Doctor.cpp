#include "app/ask/Doctor.h"

#include "app/ask/LoopLimits.h"
#include "app/terminal/Units.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>

namespace gk::app {

namespace {

namespace json = boost::json;

/// Most seconds by which two clocks may differ, a loop may be silent, and all device keys may stay
/// the same: real sensors always tremble.
constexpr double kClockTolerance = 1.0;
constexpr double kLongestSilence = 1.0;
constexpr double kFreshness = 5.0;
/// Seconds that a host has after its start.
constexpr double kSettling = 1.0;

constexpr const char* kSlowAdvice =
    "The machine is too busy: stop something else on it, or start the host with --realtime";

/// A limit of seconds, without the digits that a measured time has.
std::string limitText(double seconds) {
  return seconds < 1 ? fmt::format("limit {:g} ms", seconds * 1e3)
                     : fmt::format("limit {:g} s", seconds);
}

} // namespace

std::vector<Finding> Doctor::examine() {
  try {
    fClient.get("/livez");
  } catch (const ClientError& error) {
    fFindings.push_back({Harm::Dead, "the host is up", false, error.what(), error.what(),
                         "Start one with gk run, or say where it is with --host NAME:PORT"});
    return std::move(fFindings);
  }
  const std::string address = fClient.address().text();
  fFindings.push_back({Harm::Dead, "the host is up", true, address, address, ""});
  xReadiness();
  try {
    const json::value host = xSettledHost();
    xHost(host);
    for (const json::value& loop : listMember(host, "loops")) {
      xLoop(loop);
    }
    xVerdict();
    xModules();
  } catch (const ClientError& error) {
    fFindings.push_back({Harm::Dead, "the host can be asked", false, error.what(), error.what(),
                         "Look whether it is a host of ours, and whether it needs a token"});
  }
  return std::move(fFindings);
}

/// A host that has only just come up gets the moment that it needs to see its keys change.
json::value Doctor::xSettledHost() {
  constexpr const char* resource = "/api/v1/host?verbose";
  json::value host = fClient.getJson(resource);
  while (member(member(host, "deviceKeys"), "age_s").is_null() &&
         numberMember(host, "t_s") < kSettling) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    host = fClient.getJson(resource);
  }
  return host;
}

void Doctor::xReadiness() {
  try {
    const std::string conditions = fClient.get("/readyz?verbose");
    fFindings.push_back({Harm::Dead, "it is ready", true, "", "", ""});
    xOpenConditions(conditions);
    xToldByModules(conditions);
  } catch (const ClientError& error) {
    fFindings.push_back({Harm::Dead, "it is ready", false, error.what(), error.what(),
                         "It is starting or ending, or no loop ticks: its log tells more"});
  }
}

/// What a host does not do although it is ready, such as record.
void Doctor::xOpenConditions(const std::string& conditions) {
  constexpr std::string_view mark = "[-] ";
  std::istringstream lines(conditions);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(mark)) {
      fFindings.push_back(
          {Harm::Lossy, line.substr(mark.size()), false, "", "",
           "Make room on the disk: the recording then goes on in a new file by itself"});
    }
  }
}

/// What modules tell of themselves that is fine; all else is in the verdict.
void Doctor::xToldByModules(const std::string& conditions) {
  constexpr std::string_view mark = "[=] ";
  std::istringstream lines(conditions);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(mark)) {
      fFindings.push_back({Harm::Little, line.substr(mark.size()), true, "", "", ""});
    }
  }
}

void Doctor::xHost(const json::value& host) {
  const std::string version = textMember(host, "version");
  const std::string versions = fmt::format("host {}, this program " GK_VERSION, version);
  fFindings.push_back({Harm::Little, "versions agree", version == GK_VERSION, versions, versions,
                       "Use the gk that belongs to the host"});

  const double here =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  const double difference = numberMember(host, "time_s") - here;
  fFindings.push_back(
      {Harm::Little, "clocks agree", std::abs(difference) < kClockTolerance,
       fmt::format("{:+.3f} s", difference),
       fmt::format("{} apart ({})", durationText(std::abs(difference)), limitText(kClockTolerance)),
       "Set both clocks: recordings and events bear the host's time"});

  const json::value& age = member(member(host, "deviceKeys"), "age_s");
  const double seconds = numberMember(member(host, "deviceKeys"), "age_s");
  fFindings.push_back(
      {Harm::Blind, "device keys are fresh", !age.is_null() && seconds < kFreshness,
       age.is_null() ? "none has changed yet" : "last change " + valueText(age) + " s ago",
       fmt::format("{} ({})",
                   age.is_null() ? "none has changed yet"
                                 : "last change " + durationText(seconds) + " ago",
                   limitText(kFreshness)),
       "Nobody feeds the host: look at its device layer, or give it a robot or a recording"});

  const double lost = numberMember(member(host, "dropped"), "events");
  fFindings.push_back({Harm::Lossy, "no client has lost events", lost <= 0,
                       fmt::format("{:.0f} lost", lost),
                       fmt::format("{:.0f} lost since the start (limit 0)", lost),
                       "A client reads too slowly: gk top shows which one is there now"});

  fFindings.push_back({Harm::Dead, "a loop ticks", !listMember(host, "loops").empty(), "", "",
                       "No module with a loop is there, or none has been started"});
}

void Doctor::xLoop(const json::value& loop) {
  const std::string module = textMember(loop, "module");
  const double age = numberMember(loop, "age_s");
  fFindings.push_back(
      {Harm::Dead, module + " ticks", age < kLongestSilence,
       fmt::format("last tick {:.3f} s ago", age),
       fmt::format("last tick {} ago ({})", durationText(age), limitText(kLongestSilence)),
       "A tick hangs, or the loop has ended: the host's log tells more"});
  xLateness(loop);
  xRate(loop);
}

/// Of the last minute where the host tells of it, else since its start.
void Doctor::xLateness(const json::value& loop) {
  const json::value& recent = member(member(loop, "lastMinute"), "lateness");
  const json::value& lateness = recent.is_null() ? member(loop, "lateness") : recent;
  if (lateness.is_null()) {
    return;
  }
  const json::value& worst = member(lateness, "p999_s");
  const double seconds = numberMember(lateness, "p999_s");
  fFindings.push_back({Harm::Slow, textMember(loop, "module") + " is on time",
                       !worst.is_null() && seconds <= kLatenessLimit,
                       fmt::format("99.9 % of its ticks are at most {} s late",
                                   worst.is_null() ? "a great many" : valueText(worst)),
                       fmt::format("99.9 % of its ticks {} at most {} late ({})",
                                   recent.is_null() ? "since its start" : "in the last minute",
                                   worst.is_null() ? "a great many seconds" : durationText(seconds),
                                   limitText(kLatenessLimit)),
                       kSlowAdvice});
}

void Doctor::xRate(const json::value& loop) {
  const json::value& recent = member(loop, "lastMinute");
  const double asked = numberMember(recent, "askedRate_hz");
  if (asked <= 0) {
    return;
  }
  const double rate = numberMember(recent, "rate_hz");
  fFindings.push_back({Harm::Slow, textMember(loop, "module") + " keeps its rate",
                       rate >= kLeastRate * asked,
                       fmt::format("{:.1f} of {:.1f} ticks a second", rate, asked),
                       fmt::format("{:.1f} of {:.1f} ticks a second in the last minute "
                                   "(limit {:.0f} %)",
                                   rate, asked, kLeastRate * 100),
                       kSlowAdvice});
}

/// What matters about the robot. What matters about its host has been looked at more closely.
void Doctor::xVerdict() {
  constexpr std::array<std::string_view, 5> ofHost = {"loop", "keys", "disk", "recording",
                                                      "clients"};
  const json::value verdict = verdictOf(fClient);
  if (!verdict.is_array()) {
    return;
  }
  const json::value host = fClient.getJson("/api/v1/host");
  for (const json::value& matter : verdict.get_array()) {
    if (std::ranges::find(ofHost, textMember(matter, "subject")) != ofHost.end()) {
      continue;
    }
    const double age = numberMember(host, "t_s") - numberMember(matter, "since");
    const std::string shown = "for " + durationText(age);
    fFindings.push_back({numberMember(matter, "level") > 1 ? Harm::Dead : Harm::Slow,
                         textMember(matter, "text"), false, fmt::format("for {:.1f} s", age), shown,
                         textMember(matter, "advice")});
  }
}

void Doctor::xModules() {
  for (const json::value& module : fClient.getList("/api/v1/modules", "modules")) {
    const std::string name = textMember(module, "name");
    Finding finding{Harm::Slow, name + " answers",
                    true,       "",
                    "",         "Its code hangs or fails: the host's log tells more"};
    try {
      fClient.get("/api/v1/modules/" + escapedPath(name));
    } catch (const ClientError& error) {
      finding.isGood = false;
      finding.detail = finding.shown = error.what();
    }
    fFindings.push_back(std::move(finding));
  }
}

} // namespace gk::app
