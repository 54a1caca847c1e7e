#include "app/session/SessionOptions.h"

#include "app/session/Libraries.h"
#include "formats/lines/OutputLine.h"
#include "gk/DCM.h"
#include "gk/GKMemory.h"
#include "gk/GKResourceManager.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"
#include "messages/text/Numbers.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

namespace gk::app {

namespace {

std::vector<std::string> services() {
  return {GK::GKMemory::kName, GK::DCM::kName, GK::GKResourceManager::kName};
}

/// What stands before the name of a setting in its key.
constexpr const char* kSettings = "Settings/";

/// A setting's key and value. What is no JSON value is a text.
std::pair<std::string, GK::GKValue> settingOf(const std::string& setting) {
  const std::size_t equals = setting.find('=');
  const std::string text = setting.substr(equals + 1);
  GK::GKValue value(text);
  try {
    value = messages::valueFromJson(messages::parseJson(text));
  } catch (const messages::FormatError&) { // NOLINT(bugprone-empty-catch): it is a text
  }
  return {kSettings + setting.substr(0, equals), std::move(value)};
}

} // namespace

std::string checkKinds(const std::string& names) {
  try {
    formats::LineKinds::parse(names);
    return {};
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

std::string checkService(const std::string& name) {
  const std::vector<std::string> names = services();
  return std::ranges::find(names, name) != names.end()
             ? std::string()
             : fmt::format("{} is none of {}", name, fmt::join(names, ", "));
}

std::string checkLibraryName(const std::string& name) {
  return name.empty() || name == "+" ? "the name is empty" : std::string();
}

std::string checkSetting(const std::string& setting) {
  const std::size_t equals = setting.find('=');
  return equals != std::string::npos && equals > 0
             ? std::string()
             : setting + " is not NAME=VALUE, such as GKMine/Threshold=0.3";
}

std::string tourFile() {
  return rootFolder() / GK_DATADIR / "gksensors" / "tour.jsonl";
}

void addLibraryOptions(const Command& command, std::vector<std::string>& libraries,
                       std::vector<std::string>& settings) {
  command
      .option("--library", libraries,
              "Load this module library instead of ours, by its name or as a file; +NAME loads it "
              "besides")
      .checked(checkLibraryName)
      .shows("NAME|+NAME|FILE")
      .onceEach();
  command
      .option("--setting", settings, "Set the memory key Settings/NAME before a library is loaded")
      .checked(checkSetting)
      .shows("NAME=VALUE")
      .onceEach();
  command.takesConfig("Take options from this file: `name = value` in lines, and [settings]");
}

void addSessionOptions(const Command& command, SessionOptions& options) {
  command
      .option(
          "FILE", options.files,
          "Recordings (.csv, .mcap) and scenarios (.jsonl), merged by time; .csv and .jsonl also "
          "gzipped (.gz)")
      .shows("");
  command.section("Output");
  command
      .option("-o,--out", options.out, "Write JSON Lines to this file, or to standard output for -")
      .shows("FILE");
  command.option("--only", options.only, "Write only these kinds of lines, such as event,micro")
      .checked(checkKinds)
      .shows("KIND,KIND");
  command.flag("-q,--quiet", options.isQuiet,
               "Show nothing of what happens: only complaints, and the sum at the end");
  command
      .option("--show", options.show,
              "Show only events with such names: a part of one, or a pattern with * and ?; what "
              "--out writes stays")
      .separatedBy(',')
      .shows("NAME,NAME")
      .onceEach();
  const Option sample =
      command.option("--sample", options.sample, "Write the values of these keys after every tick")
          .separatedBy(',')
          .shows("KEY,KEY")
          .onceEach();
  command
      .flag("--changes", options.isOnlyChanges,
            "With --sample: only when one of the values has changed")
      .needs(sample);
  command.option("--from", options.sampleFrom, "With --sample: not before this time")
      .within(0.0, messages::kMaxSeconds)
      .shows("SECONDS")
      .needs(sample);
  command.option("--count", options.sampleCount, "With --sample: so many lines of values at most")
      .positive()
      .shows("N")
      .needs(sample);
  command.section("Modules");
  command.option("--subscribe", options.subscribe, "Subscribe to this extractor at the start")
      .shows("MODULE")
      .onceEach();
  command.option("--without", options.without, "Leave a service out")
      .oneOf(services())
      .shows("GKMemory|DCM|GKResourceManager")
      .onceEach();
  addLibraryOptions(command, options.libraries, options.settings);
  command.section("Expectations");
  command.flag(
      "--no-expect", options.isExpectingNothing,
      "Leave out what scenarios, and NAME.expect.jsonl beside an input, expect of the run");
  command.section("Time");
  command
      .option("--epoch", options.epoch,
              "Wall time at the start of the virtual clock, seconds since 1970")
      .shows("SECONDS")
      .showsDefault()
      .whenGiven([&options] { options.isEpochGiven = true; });
  command.option("--until", options.until, "End at this time, in seconds from the start")
      .within(0.0, messages::kMaxSeconds)
      .shows("SECONDS");
  command.section("Log");
  command
      .option("--log-level", options.logLevel,
              "Show log lines up to this level: 1 fatal to 6 debug, 0 none")
      .within(0, 6)
      .shows("LEVEL")
      .showsDefault();
  command.option("--log-file", options.logFile, "Append all log lines to this file").shows("FILE");
}

std::vector<std::string> sessionArguments(const SessionOptions& options) {
  std::vector<std::string> arguments;
  const auto add = [&arguments](const char* name, const std::string& value) {
    if (!value.empty()) {
      arguments.insert(arguments.end(), {name, value});
    }
  };
  const auto addEach = [&add](const char* name, const std::vector<std::string>& values) {
    for (const std::string& value : values) {
      add(name, value);
    }
  };
  add("--out", options.out);
  add("--only", options.only);
  addEach("--sample", options.sample);
  if (options.isOnlyChanges) {
    arguments.emplace_back("--changes");
  }
  if (options.sampleFrom > 0.0) {
    add("--from", messages::doubleText(options.sampleFrom));
  }
  if (options.sampleCount > 0) {
    add("--count", std::to_string(options.sampleCount));
  }
  addEach("--subscribe", options.subscribe);
  addEach("--without", options.without);
  addEach("--library", options.libraries);
  addEach("--setting", options.settings);
  if (options.isEpochGiven) {
    add("--epoch", std::to_string(options.epoch));
  }
  if (options.isExpectingNothing) {
    arguments.emplace_back("--no-expect");
  }
  if (options.until) {
    add("--until", messages::doubleText(*options.until));
  }
  add("--log-level", std::to_string(options.logLevel));
  add("--log-file", options.logFile);
  arguments.emplace_back("--");
  arguments.insert(arguments.end(), options.files.begin(), options.files.end());
  return arguments;
}

std::vector<std::string> inputFiles(const runtime::HostOptions& host) {
  std::vector<std::string> files = host.files;
  files.insert(files.end(), host.beside.begin(), host.beside.end());
  for (const std::string& library : host.libraries) {
    if (runtime::isLibraryPath(library)) {
      files.push_back(library);
    }
  }
  if (host.replay != nullptr) {
    files.insert(files.end(), host.replay->files().begin(), host.replay->files().end());
  }
  return files;
}

runtime::HostOptions hostOptions(const SessionOptions& options) {
  runtime::HostOptions host;
  host.files = options.files;
  host.libraries = libraryNames(addLibraries({kOwnLibrary}, options.libraries));
  host.libraryFolders = libraryFolders();
  host.without = options.without;
  host.subscribe = options.subscribe;
  host.sample.keys = options.sample;
  host.sample.isOnlyChanges = options.isOnlyChanges;
  host.sample.from = messages::toMicros(options.sampleFrom).value_or(0);
  if (options.sampleCount > 0) {
    host.sample.count = options.sampleCount;
  }
  for (const std::string& setting : options.settings) {
    host.settings.push_back(settingOf(setting));
  }
  host.epoch = options.epoch;
  if (options.until) {
    host.until = messages::toMicros(*options.until);
  }
  return host;
}

} // namespace gk::app
