#include "messages/fleet/FleetTopics.h"

#include "messages/json/JsonText.h"
#include "messages/text/FormatError.h"

#include <algorithm>

namespace gk::messages {

namespace {

constexpr std::size_t kMostLevel = 128;
constexpr std::size_t kMostTopic = 1024;

bool isLevelCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-' || c == '.';
}

void expectLevel(const char* what, const std::string& text) {
  if (!isTopicLevel(text)) {
    throw FormatError(std::string(what) + ": " + quotedText(text) +
                      " is no level of a topic: 1 to " + std::to_string(kMostLevel) +
                      " letters, digits, \"_\", \"-\" and \".\"");
  }
}

} // namespace

bool isTopicLevel(std::string_view text) {
  return !text.empty() && text.size() <= kMostLevel && std::ranges::all_of(text, isLevelCharacter);
}

std::string topicLevel(std::string_view name) {
  if (name.empty()) {
    return "_";
  }
  std::string level(name.substr(0, kMostLevel));
  std::ranges::replace_if(
      level, [](char c) { return !isLevelCharacter(c); }, '_');
  return level;
}

FleetTopics::FleetTopics(const std::string& root, const std::string& site,
                         const std::string& robot) {
  expectLevel("root", root);
  expectLevel("site", site);
  expectLevel("robot", robot);
  fSite = root + "/" + kFleetVersion + "/" + site + "/";
  fRobot = fSite + robot + "/";
}

std::string FleetTopics::event(std::string_view name) const {
  return fRobot + kEventTopic + "/" + topicLevel(name);
}

std::string FleetTopics::rpc(std::string_view module, std::string_view method) const {
  return fRobot + kRpcTopic + "/" + topicLevel(module) + "/" + topicLevel(method);
}

std::string FleetTopics::rpcFilter() const {
  return fRobot + kRpcTopic + "/+/+";
}

bool FleetTopics::isAnswerTopic(std::string_view topic) const {
  return topic.starts_with(fSite) && topic.size() > fSite.size() && topic.size() <= kMostTopic &&
         topic.find_first_of("+#") == std::string_view::npos;
}

std::optional<FleetTopic> parseFleetTopic(std::string_view topic) {
  std::vector<std::string> levels;
  for (std::size_t begin = 0; begin <= topic.size();) {
    const std::size_t end = std::min(topic.find('/', begin), topic.size());
    levels.emplace_back(topic.substr(begin, end - begin));
    begin = end + 1;
  }
  constexpr std::size_t kKind = 4;
  if (levels.size() <= kKind || levels[1] != kFleetVersion) {
    return std::nullopt;
  }
  return FleetTopic{levels[0], levels[2], levels[3], levels[kKind],
                    std::vector<std::string>(levels.begin() + kKind + 1, levels.end())};
}

std::string fleetFilter(const std::string& root, const std::string& site, const std::string& kind) {
  return root + "/" + kFleetVersion + "/" + site + "/+/" + kind;
}

} // namespace gk::messages
