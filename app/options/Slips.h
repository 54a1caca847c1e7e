#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class ParseError;
} // namespace CLI

/// Names of commands and options that a command line has wrong, and what is said of them.
namespace gk::app {

/// Whether a command is nothing but the name of several others.
bool hasCommands(const CLI::App& app);

/// The command that words without options choose; what stands behind its name is its own. Raises
/// `CLI::ParseError` where there is none of such a name.
const CLI::App& commandOf(const CLI::App& app, const std::vector<std::string>& words);
/// The same where each word has to be a command's name.
const CLI::App& commandNamed(const CLI::App& app, const std::vector<std::string>& words);

/// The help of this command, whatever is being run.
std::string helpOf(const CLI::App& command);

/// After a line was read whose words may be anything: what looks like an option that was mistyped
/// is none of them, unless it stands behind "--". Raises `CLI::ParseError`.
void expectNoSlip(const CLI::App& app, const std::vector<std::string>& words);

/// What to say of a line that could not be read: a mistyped option comes before what follows from
/// it.
std::string complaintOf(const CLI::App& app, const CLI::ParseError& error);

} // namespace gk::app
