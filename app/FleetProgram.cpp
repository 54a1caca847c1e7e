#include "app/FleetProgram.h"

#include "app/session/Complaints.h"
#include "app/session/Libraries.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace gk::app {

namespace {

constexpr const char* kFleetCommand = "fleet";
constexpr const char* kFleetProgram = "gk-fleet";

/// Where it may be: beside this program, or where programs lie that people do not start themselves.
std::vector<std::filesystem::path> fleetPlaces() {
  return {programFile().parent_path() / kFleetProgram,
          rootFolder() / "libexec" / "gksensors" / kFleetProgram};
}

} // namespace

void addFleetCommand(const Command& program) {
  const Command command =
      program.subcommand(kFleetCommand, "Watch and ask many robots by way of an MQTT broker");
  auto words = std::make_shared<std::vector<std::string>>();
  command.option("COMMAND", *words, "list, watch, events, call or serve").shows("");
}

int replacedByFleet(int argc, char** argv) {
  const auto isWord = [&](int place, std::string_view word) {
    return place < argc && word == argv[place];
  };
  std::string help = "help";
  std::vector<char*> words{argv[0]};
  int first = 2;
  if (isWord(1, "help") && isWord(2, kFleetCommand)) {
    words.push_back(help.data());
    first = 3;
  } else if (!isWord(1, kFleetCommand)) {
    return -1;
  }
  words.insert(words.end(), argv + first, argv + argc);
  words.push_back(nullptr);
  for (const std::filesystem::path& place : fleetPlaces()) {
    // Returns only where it is not there.
    ::execv(place.c_str(), words.data());
  }
  complain("gk fleet is in a package of its own, which is not installed: gksensors-fleet");
  return kFailure;
}

} // namespace gk::app
