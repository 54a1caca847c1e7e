#pragma once

#include "app/options/Command.h"
#include "runtime/host/Host.h"

#include <optional>
#include <string>
#include <vector>

namespace gk::app {

/// The options that `gk run` and `gk replay` share, as they stand on the command line.
struct SessionOptions {
  std::vector<std::string> files;
  std::string out;
  std::string only;
  bool isQuiet = false;
  std::vector<std::string> show;
  std::vector<std::string> sample;
  bool isOnlyChanges = false;
  double sampleFrom = 0.0;
  std::uint64_t sampleCount = 0;
  std::vector<std::string> subscribe;
  std::vector<std::string> without;
  /// As they are named, additions with their "+".
  std::vector<std::string> libraries;
  std::vector<std::string> settings;
  std::int64_t epoch = runtime::kDefaultEpoch;
  bool isEpochGiven = false;
  std::optional<double> until;
  int logLevel = 4;
  std::string logFile;
  /// What files expect of the run is left out.
  bool isExpectingNothing = false;
};

void addSessionOptions(const Command& command, SessionOptions& options);
/// "--library", "--setting" and "--config" alone, for commands that make sessions of their own.
void addLibraryOptions(const Command& command, std::vector<std::string>& libraries,
                       std::vector<std::string>& settings);

// What is wrong with a value of --only, --without, --library or --setting; empty if nothing is.
std::string checkKinds(const std::string& names);
std::string checkService(const std::string& name);
std::string checkLibraryName(const std::string& name);
std::string checkSetting(const std::string& setting);

/// The scenario that shows what the simulated robot can notice.
std::string tourFile();

/// The options as they would stand on a command line that asks for the same; files last.
std::vector<std::string> sessionArguments(const SessionOptions& options);

/// The files that a run reads: what it writes must be others.
std::vector<std::string> inputFiles(const runtime::HostOptions& host);

/// The host's options; those that only one command has are left at their defaults.
runtime::HostOptions hostOptions(const SessionOptions& options);

} // namespace gk::app
