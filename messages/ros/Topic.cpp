#include "messages/ros/Topic.h"

#include <algorithm>
#include <cctype>
#include <limits>
#include <stdexcept>

namespace gk::messages::ros {

namespace {

/// Names of topics within a namespace stay within what DDS takes.
constexpr std::size_t kMostBytes = 200;

bool isPart(std::string_view part) {
  const auto isLetter = [](char c) {
    return c == '_' || std::isalnum(static_cast<unsigned char>(c)) != 0;
  };
  return !part.empty() && std::isdigit(static_cast<unsigned char>(part.front())) == 0 &&
         std::ranges::all_of(part, isLetter);
}

} // namespace

Qos qosOf(Profile profile) {
  constexpr std::uint32_t few = 10;
  constexpr std::uint32_t many = 100;
  switch (profile) {
  case Profile::Stream:
    return {few, false, 0};
  case Profile::Burst:
    return {many, false, 0};
  case Profile::Latched:
    return {1, true, 0};
  case Profile::Log:
    break;
  }
  return {many, true, 10};
}

std::string namespaceOf(std::string_view text) {
  std::string_view rest = text;
  if (rest.starts_with('/')) {
    rest.remove_prefix(1);
  }
  if (rest.size() > 1 && rest.ends_with('/')) {
    rest.remove_suffix(1);
  }
  std::string result;
  while (!rest.empty()) {
    const std::string_view part = rest.substr(0, rest.find('/'));
    if (!isPart(part)) {
      throw std::invalid_argument("a ROS namespace is made of letters, digits and \"_\", its parts "
                                  "begin with no digit and are parted by \"/\"");
    }
    result.append("/").append(part);
    rest.remove_prefix(part.size());
    if (rest.starts_with('/')) {
      rest.remove_prefix(1);
      if (rest.empty()) {
        throw std::invalid_argument("a ROS namespace has no empty part");
      }
    }
  }
  if (result.size() > kMostBytes) {
    throw std::invalid_argument("a ROS namespace has at most 200 characters");
  }
  return result;
}

std::string nameIn(std::string_view nameSpace, const Topic& topic) {
  return (topic.isGlobal ? std::string() : std::string(nameSpace)).append(topic.name);
}

Time stampOf(std::uint64_t nanoseconds) {
  constexpr std::uint64_t perSecond = 1'000'000'000;
  constexpr std::uint64_t last = std::numeric_limits<std::int32_t>::max();
  if (nanoseconds / perSecond > last) {
    return {static_cast<std::int32_t>(last), perSecond - 1};
  }
  return {static_cast<std::int32_t>(nanoseconds / perSecond),
          static_cast<std::uint32_t>(nanoseconds % perSecond)};
}

} // namespace gk::messages::ros
