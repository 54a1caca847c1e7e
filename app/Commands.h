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

} // namespace gk::app
