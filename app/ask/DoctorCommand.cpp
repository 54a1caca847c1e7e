#include "app/ask/AskCommands.h"
#include "app/ask/Doctor.h"
#include "app/terminal/Screen.h"
#include "app/terminal/Table.h"
#include "formats/text/Printable.h"
#include "messages/json/JsonText.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

struct DoctorOptions {
  ClientOptions client;
  bool isFailedOnly = false;
};

/// The lines of a finding, below each other where the terminal is narrow.
std::string findingText(const Finding& finding) {
  std::string text = finding.what;
  text += finding.shown.empty() ? "" : ": " + finding.shown;
  text += finding.isGood || finding.advice.empty() ? "" : ". " + finding.advice;
  std::string line = (finding.isGood ? "ok  " : "NO  ") + formats::printable(text);
  if (!isTerminal()) {
    return line;
  }
  constexpr std::size_t mark = 2;
  std::string wrapped = wrappedText(line, screenSize().columns, mark + 2);
  if (!hasColours()) {
    return wrapped;
  }
  const char* colour = finding.isGood ? "\x1b[32m" : "\x1b[1;31m";
  return colour + wrapped.substr(0, mark) + "\x1b[0m" + wrapped.substr(mark);
}

/// What it comes to, in one line.
std::string verdictText(const std::vector<Finding>& findings, const std::string& address) {
  const auto failed = std::ranges::count(findings, false, &Finding::isGood);
  return failed == 0 ? fmt::format("all is well at {}: {} checks", address, findings.size())
                     : fmt::format("not well at {}: {} of {} checks failed, the worst first",
                                   address, failed, findings.size());
}

void printForPeople(std::vector<Finding> findings, const DoctorOptions& options,
                    const std::string& address) {
  const std::string verdict = verdictText(findings, address);
  fmt::print("{}\n", hasColours() ? "\x1b[1m" + verdict + "\x1b[0m" : verdict);
  std::ranges::stable_sort(findings, [](const Finding& a, const Finding& b) {
    return a.isGood != b.isGood ? !a.isGood : !a.isGood && a.harm > b.harm;
  });
  for (const Finding& finding : findings) {
    if (!finding.isGood || !options.isFailedOnly) {
      fmt::print("{}\n", findingText(finding));
    }
  }
}

void printForPrograms(const std::vector<Finding>& findings, const DoctorOptions& options) {
  std::string text = "[";
  for (const Finding& finding : findings) {
    if (finding.isGood && options.isFailedOnly) {
      continue;
    }
    text += text.size() > 1 ? "," : "";
    text += R"({"what":)";
    messages::appendJsonString(text, finding.what);
    text += fmt::format(R"(,"isGood":{},"detail":)", finding.isGood);
    messages::appendJsonString(text, finding.detail);
    text += "}";
  }
  fmt::print("{}]\n", text);
}

int examine(const DoctorOptions& options) {
  Doctor doctor(options.client);
  const std::vector<Finding> findings = doctor.examine();
  if (options.client.isJson) {
    printForPrograms(findings, options);
  } else {
    printForPeople(findings, options, doctor.address());
  }
  return std::ranges::all_of(findings, &Finding::isGood) ? kSuccess : kFailure;
}

} // namespace

void addDoctorCommand(const Command& program) {
  const Command command = program.subcommand(
      "doctor", "Check a host: up, ready, fresh, on time; exit code 1 when something is wrong");
  auto options = std::make_shared<DoctorOptions>();
  command.flag("--failed", options->isFailedOnly, "Show only what is wrong");
  addClientOptions(command, options->client);
  command.does([options] { return runClient([&] { return examine(*options); }); });
}

} // namespace gk::app
