#include "app/ask/AskCommands.h"
#include "app/client/HostClient.h"
#include "formats/text/Printable.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

/// What stands after a command in general: names of a running host.
constexpr std::pair<std::string_view, std::string_view> kNamesAfter[] = {
    {"describe", "modules"}, {"call", "methods"}, {"get", "keys"},
    {"set", "keys"},         {"watch", "keys"},   {"events", "events"}};

/// The shells that there is a script for.
const std::vector<std::string> kShells = {"bash", "zsh", "fish"};

/// The commands of gk fleet, which is a program of its own.
constexpr const char* kFleetCommands = "list watch events call serve";

// What is between @ is put in.

constexpr const char* kBash = R"bash(# Completion of gk for bash:  source <(gk completion bash)
_gk() {
  local current=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} options='' names=''
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W '@commands@' -- "$current")
    return
  fi
  case $command in
@cases@  esac
  if [[ $current == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
  elif [[ $command == completion ]]; then
    mapfile -t COMPREPLY < <(compgen -W '@shells@' -- "$current")
  elif [[ $command == fleet && COMP_CWORD -eq 2 ]]; then
    mapfile -t COMPREPLY < <(compgen -W '@fleet@' -- "$current")
  elif [[ -n $names ]]; then
    names=$("${COMP_WORDS[0]}" names "$names" 2>/dev/null)
    mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -o filenames -o nosort -F _gk gk
)bash";

constexpr const char* kZsh = R"zsh(#compdef gk
# Completion of gk for zsh, after compinit:  source <(gk completion zsh)
_gk() {
  local kind= command=$words[2]
  local -a options names commands
  if ((CURRENT == 2)); then
    commands=(
@commands@    )
    _describe -V command commands
    return
  fi
  case $command in
@cases@  esac
  if [[ $words[CURRENT] == -* ]]; then
    compadd -- $options
  elif [[ $command == completion ]]; then
    compadd -- @shells@
  elif [[ $command == fleet && CURRENT -eq 3 ]]; then
    compadd -- @fleet@
  elif [[ -n $kind ]]; then
    names=(${(f)"$($words[1] names $kind 2>/dev/null)"})
    compadd -- $names
  else
    _files
  fi
}
compdef _gk gk
)zsh";

constexpr const char* kFish = R"fish(# Completion of gk for fish:  gk completion fish | source
@commands@@cases@complete -c gk -n '__fish_seen_subcommand_from completion' -f -a '@shells@'
complete -c gk -n '__fish_seen_subcommand_from fleet' -f -a '@fleet@'
)fish";

void replace(std::string& text, std::string_view what, const std::string& with) {
  text.replace(text.find(what), what.size(), with);
}

/// `text` with a backslash before each of `characters`.
std::string escaped(const std::string& text, std::string_view characters) {
  std::string result;
  for (const char one : text) {
    result += characters.find(one) == std::string_view::npos ? "" : "\\";
    result += one;
  }
  return result;
}

/// What names stand after the command; empty where there are files.
std::string_view namesAfter(const std::string& command) {
  for (const auto& [after, kind] : kNamesAfter) {
    if (after == command) {
      return kind;
    }
  }
  return {};
}

struct Script {
  std::string text;
  std::string commands;
  std::string cases;
};

Script bashScript(const CommandLine& line) {
  Script script{kBash, {}, {}};
  for (const CommandLine::Description& command : line.commands()) {
    script.commands += (script.commands.empty() ? "" : " ") + command.name;
    script.cases += fmt::format("    {}) options='{}' names='{}' ;;\n", command.name,
                                fmt::join(command.options, " "), namesAfter(command.name));
  }
  return script;
}

Script zshScript(const CommandLine& line) {
  Script script{kZsh, {}, {}};
  for (const CommandLine::Description& command : line.commands()) {
    // A colon is between a name and what it means.
    script.commands +=
        fmt::format("      \"{}:{}\"\n", command.name, escaped(command.text, "\\\"$`"));
    script.cases += fmt::format("    {}) options=({}) kind={} ;;\n", command.name,
                                fmt::join(command.options, " "), namesAfter(command.name));
  }
  return script;
}

Script fishScript(const CommandLine& line) {
  Script script{kFish, {}, {}};
  for (const CommandLine::Description& command : line.commands()) {
    script.commands += fmt::format("complete -c gk -n __fish_use_subcommand -f -a {} -d '{}'\n",
                                   command.name, escaped(command.text, "\\'"));
    const std::string after =
        fmt::format("complete -c gk -n '__fish_seen_subcommand_from {}'", command.name);
    for (const std::string& option : command.options) {
      script.cases += fmt::format("{} -l {}\n", after, option.substr(2));
    }
    if (const std::string_view names = namesAfter(command.name); !names.empty()) {
      script.cases += fmt::format("{} -f -a '(gk names {} 2>/dev/null)'\n", after, names);
    }
  }
  return script;
}

/// The script is made of the commands themselves: it knows what the program knows.
std::string completionScript(const CommandLine& line, const std::string& shell) {
  Script script = shell == "bash"  ? bashScript(line)
                  : shell == "zsh" ? zshScript(line)
                                   : fishScript(line);
  replace(script.text, "@commands@", script.commands);
  replace(script.text, "@cases@", script.cases);
  replace(script.text, "@fleet@", kFleetCommands);
  replace(script.text, "@shells@", fmt::format("{}", fmt::join(kShells, " ")));
  return script.text;
}

void printMembers(HostClient& client, const std::string& target, const char* list,
                  const char* name) {
  for (const json::value& one : client.getList(target, list)) {
    fmt::print("{}\n", formats::printable(textMember(one, name)));
  }
}

int printNames(const ClientOptions& options, const std::string& kind) {
  HostClient client(options);
  if (kind == "modules") {
    printMembers(client, "/api/v1/modules", "modules", "name");
  } else if (kind == "keys") {
    printMembers(client, "/api/v1/memory?limit=10000", "keys", "key");
  } else if (kind == "events") {
    printMembers(client, "/api/v1/events", "events", "name");
  } else {
    for (const json::value& module : client.getList("/api/v1/modules", "modules")) {
      const std::string name = textMember(module, "name");
      const json::value described = client.getJson("/api/v1/modules/" + escapedPath(name));
      for (const json::value& method : listMember(described, "methods")) {
        fmt::print("{}.{}\n", name, textMember(method, "name"));
      }
    }
  }
  return kSuccess;
}

} // namespace

void addCompletionCommand(const CommandLine& line) {
  const Command command =
      line.program()
          .titled(kHelpTitle)
          .subcommand("completion", "Print a script that completes gk in a shell");
  auto shell = std::make_shared<std::string>();
  command.option("SHELL", *shell, "bash, zsh or fish").required().oneOf(kShells).shows("");
  command.does([&line, shell] { // which the option writes to
    fmt::print("{}", completionScript(line, *shell));
    return static_cast<int>(kSuccess);
  });

  // What the script asks for; not for people.
  const Command names = line.program().subcommand("names", "Names of a running host, one a line");
  names.hide();
  auto options = std::make_shared<ClientOptions>();
  auto kind = std::make_shared<std::string>();
  names.option("KIND", *kind, "modules, methods, keys or events")
      .required()
      .oneOf({"modules", "methods", "keys", "events"})
      .shows("");
  addClientOptions(names, *options);
  names.does([options, kind] { return runClient([&] { return printNames(*options, *kind); }); });
}

} // namespace gk::app
