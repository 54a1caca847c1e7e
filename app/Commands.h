#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace gk::app {

/// Exit codes of every command.
enum ExitCode : int { kSuccess = 0, kFailure = 1, kBadInput = 2 };

/// What a command does once its options are read; returns the exit code.
using Action = std::function<int()>;

/// Each adds one subcommand to `app`. `action` is set when it was chosen.
void addRunCommand(CLI::App& app, Action& action);
void addReplayCommand(CLI::App& app, Action& action);
void addRecordingCommand(CLI::App& app, Action& action);

// What follows asks a running host.
void addModulesCommand(CLI::App& app, Action& action);
void addDescribeCommand(CLI::App& app, Action& action);
void addCallCommand(CLI::App& app, Action& action);
void addGetCommand(CLI::App& app, Action& action);
void addSetCommand(CLI::App& app, Action& action);
void addKeysCommand(CLI::App& app, Action& action);
void addEventsCommand(CLI::App& app, Action& action);
void addWatchCommand(CLI::App& app, Action& action);
void addRecordCommand(CLI::App& app, Action& action);
void addTopCommand(CLI::App& app, Action& action);
void addDoctorCommand(CLI::App& app, Action& action);
void addCompletionCommand(CLI::App& app, Action& action);

} // namespace gk::app
