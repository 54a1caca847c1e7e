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

/// What is between @ is put in.
constexpr const char* kScript = R"bash(# Completion of gk for bash:  source <(gk completion bash)
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
    mapfile -t COMPREPLY < <(compgen -W 'bash' -- "$current")
  elif [[ -n $names ]]; then
    names=$("${COMP_WORDS[0]}" names "$names" 2>/dev/null)
    mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -o filenames -o nosort -F _gk gk
)bash";

void replace(std::string& text, std::string_view what, const std::string& with) {
  text.replace(text.find(what), what.size(), with);
}

/// The script is made of the commands themselves: it knows what the program knows.
std::string bashScript(const CommandLine& line) {
  std::string commands;
  std::string cases;
  for (const CommandLine::Description& command : line.commands()) {
    commands += (commands.empty() ? "" : " ") + command.name;
    std::string names;
    for (const auto& [after, kind] : kNamesAfter) {
      names = after == command.name ? std::string(kind) : names;
    }
    cases += fmt::format("    {}) options='{}' names='{}' ;;\n", command.name,
                         fmt::join(command.options, " "), names);
  }
  std::string script = kScript;
  replace(script, "@commands@", commands);
  replace(script, "@cases@", cases);
  return script;
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
  command.option("SHELL", *shell, "bash").required().oneOf({"bash"}).shows("");
  command.does([&line, shell] { // which the option writes to
    fmt::print("{}", bashScript(line));
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
