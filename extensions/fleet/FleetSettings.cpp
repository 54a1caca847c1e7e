#include "extensions/fleet/FleetSettings.h"

#include "messages/fleet/FleetTopics.h"
#include "messages/json/JsonText.h"
#include "messages/text/FormatError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace gk::fleet {

namespace {

using GK::GKValue;

constexpr double kLeastBytes = 65536;
constexpr double kMostBytes = 1e15;
constexpr double kMostRate = 1e6;
constexpr double kLeastKeepAlive = 5;
constexpr double kMostKeepAlive = 3600;

[[noreturn]] void refuse(const std::string& name, const std::string& why) {
  throw SettingError(std::string(FleetSettings::kPrefix) + name + ": " + why);
}

/// The settings one by one; what nobody asked for is a slip.
class Reader {
public:
  explicit Reader(const GK::GKMemoryStore& store) : fStore(store) {}

  std::string text(const std::string& name, std::string otherwise) {
    const std::optional<GKValue> value = xFind(name);
    if (!value) {
      return otherwise;
    }
    if (value->type() != GKValue::Type::String) {
      refuse(name, "a text is wanted");
    }
    return value->toString();
  }

  double number(const std::string& name, double otherwise, double least, double most) {
    const std::optional<GKValue> value = xFind(name);
    if (!value) {
      return otherwise;
    }
    const bool isNumber =
        value->type() == GKValue::Type::Int || value->type() == GKValue::Type::Float;
    const double number = !isNumber ? NAN
                          : value->type() == GKValue::Type::Int
                              ? static_cast<double>(value->toInt())
                              : static_cast<double>(value->toFloat());
    if (!(number >= least && number <= most)) {
      std::ostringstream text;
      text << "a number from " << least << " to " << most << " is wanted";
      refuse(name, text.str());
    }
    return number;
  }

  /// Raises for settings that there are not.
  void finish() const {
    const std::string prefix = FleetSettings::kPrefix;
    for (const std::string& key : fStore.keys()) {
      if (key.starts_with(prefix) && !fKnown.contains(key.substr(prefix.size()))) {
        std::string known;
        for (const std::string& name : fKnown) {
          known += (known.empty() ? "" : ", ") + name;
        }
        refuse(key.substr(prefix.size()), "there is no such setting; there are " + known);
      }
    }
  }

private:
  std::optional<GKValue> xFind(const std::string& name) {
    fKnown.insert(name);
    return fStore.get(FleetSettings::kPrefix + name);
  }

  const GK::GKMemoryStore& fStore;
  std::set<std::string> fKnown;
};

std::string environment(const char* name) {
  const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nobody changes it
  return value != nullptr ? value : "";
}

std::string hostName() {
  constexpr std::size_t kMostName = 256;
  std::array<char, kMostName> name{};
  gethostname(name.data(), name.size() - 1);
  return messages::topicLevel(name.data());
}

std::string defaultOutbox(const std::string& robot) {
  const std::string file = "fleet-" + robot + ".db";
  // The service manager gives several folders with colons between them.
  if (const std::string state = environment("STATE_DIRECTORY"); !state.empty()) {
    return state.substr(0, state.find(':')) + "/" + file;
  }
  if (const std::string state = environment("XDG_STATE_HOME"); !state.empty()) {
    return state + "/gksensors/" + file;
  }
  if (const std::string home = environment("HOME"); !home.empty()) {
    return home + "/.local/state/gksensors/" + file;
  }
  refuse("OutboxFile", "it has to be given where there is no home folder");
}

std::vector<std::string> namesOf(const std::string& text) {
  std::vector<std::string> names;
  std::istringstream stream(text);
  for (std::string name; std::getline(stream, name, ',');) {
    const std::size_t begin = name.find_first_not_of(' ');
    if (begin == std::string::npos) {
      refuse("Calls", "names of modules with commas between them are wanted");
    }
    names.push_back(name.substr(begin, name.find_last_not_of(' ') - begin + 1));
  }
  return names;
}

/// Whether the service manager put it there, which gives its owner alone a way to it.
bool isCredential(const std::string& file) {
  const std::string folder = environment("CREDENTIALS_DIRECTORY");
  return !folder.empty() && std::filesystem::path(file).lexically_normal().string().starts_with(
                                std::filesystem::path(folder + "/").lexically_normal().string());
}

std::optional<messages::MqttTls> tlsOf(Reader& reader, const messages::BrokerAddress& broker) {
  const messages::MqttTls files{reader.text("CaFile", ""), reader.text("CertificateFile", ""),
                                reader.text("KeyFile", "")};
  if (broker.isTls) {
    return files;
  }
  for (const auto& [name, file] :
       {std::pair("CaFile", files.caFile), std::pair("CertificateFile", files.certificateFile),
        std::pair("KeyFile", files.keyFile)}) {
    if (!file.empty()) {
      refuse(name, "this is for TLS: Url has to begin with mqtts://");
    }
  }
  return std::nullopt;
}

} // namespace

bool FleetSettings::isAllowed(const std::string& module) const {
  return std::ranges::any_of(
      calls, [&module](const std::string& name) { return name == "*" || name == module; });
}

std::pair<std::string, std::string> readPassword(const std::string& file) {
  constexpr const char* kName = "PasswordFile";
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) {
    refuse(kName, file + ": " + std::generic_category().message(errno));
  }
  constexpr mode_t kPermissions = 0777;
  constexpr mode_t kOthers = S_IRWXG | S_IRWXO;
  constexpr mode_t kCredential = S_IRUSR | S_IRGRP;
  const mode_t mode = status.st_mode & kPermissions;
  if ((mode & kOthers) != 0 && !(mode == kCredential && isCredential(file))) {
    refuse(kName, file + ": others than its owner have access to it: chmod 600 mends that");
  }
  std::ifstream stream(file);
  std::string line;
  if (!std::getline(stream, line)) {
    refuse(kName, file + ": it cannot be read or is empty");
  }
  if (line.ends_with('\r')) {
    line.pop_back();
  }
  const std::size_t colon = line.find(':');
  std::string rest;
  if (colon == std::string::npos || colon == 0 || std::getline(stream, rest)) {
    refuse(kName, file + ": one line USER:PASSWORD is wanted");
  }
  return {line.substr(0, colon), line.substr(colon + 1)};
}

FleetSettings readSettings(const GK::GKMemoryStore& store) {
  Reader reader(store);
  FleetSettings settings;
  const std::string url = reader.text("Url", "");
  settings.root = reader.text("Root", messages::kFleetRoot);
  settings.site = reader.text("Site", messages::kFleetSite);
  settings.robot = reader.text("Robot", hostName());
  for (const auto& [name, level] :
       {std::pair("Root", settings.root), std::pair("Site", settings.site),
        std::pair("Robot", settings.robot)}) {
    if (!messages::isTopicLevel(level)) {
      refuse(name, messages::quotedText(level) +
                       " is no level of a topic: letters, digits, \"_\", \"-\" and \".\"");
    }
  }
  settings.calls = namesOf(reader.text("Calls", ""));
  settings.outbox.file = reader.text("OutboxFile", "");
  settings.outbox.bytes = static_cast<std::uint64_t>(reader.number(
      "OutboxBytes", static_cast<double>(settings.outbox.bytes), kLeastBytes, kMostBytes));
  settings.backlogRate = reader.number("BacklogRate", settings.backlogRate, 1, kMostRate);
  settings.keepAlive = std::chrono::seconds(
      std::lround(reader.number("KeepAlive", static_cast<double>(settings.keepAlive.count()),
                                kLeastKeepAlive, kMostKeepAlive)));
  settings.page = reader.text("Page", "");
  const std::string passwordFile = reader.text("PasswordFile", "");
  if (!url.empty()) {
    try {
      settings.broker = messages::parseBrokerAddress(url);
    } catch (const messages::FormatError& error) {
      refuse("Url", error.what());
    }
  }
  settings.tls = tlsOf(reader, settings.broker);
  reader.finish();
  if (url.empty()) {
    refuse("Url", "it is missing: mqtt://HOST[:PORT] or mqtts://HOST[:PORT]");
  }
  if (settings.outbox.file.empty()) {
    settings.outbox.file = defaultOutbox(settings.robot);
  }
  if (!passwordFile.empty()) {
    std::tie(settings.user, settings.password) = readPassword(passwordFile);
  }
  return settings;
}

} // namespace gk::fleet
