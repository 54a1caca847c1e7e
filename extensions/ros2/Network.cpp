#include "extensions/ros2/Network.h"

#include "messages/text/Numbers.h"

#include <algorithm>
#include <array>
#include <net/if.h>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace gk::ros2 {

namespace {

constexpr const char* kDomain = "ROS_DOMAIN_ID";
constexpr const char* kRange = "ROS_AUTOMATIC_DISCOVERY_RANGE";
constexpr const char* kPeers = "ROS_STATIC_PEERS";
constexpr const char* kOnlyHere = "ROS_LOCALHOST_ONLY";

[[noreturn]] void refuse(const std::string& text) {
  throw std::invalid_argument(text);
}

std::string valueOf(const Environment& environment, const char* variable) {
  const char* value = environment(variable);
  return value != nullptr ? value : "";
}

std::uint32_t readDomain(const std::string& text) {
  if (text.empty()) {
    return 0;
  }
  const bool isNumber = text.size() <= 3 && text.find_first_not_of("0123456789") == text.npos;
  const unsigned long number = isNumber ? std::stoul(text) : kMostDomain + 1;
  if (number > kMostDomain) {
    refuse(std::string(kDomain) + ": " + text + " is no number from 0 to " +
           std::to_string(kMostDomain));
  }
  return static_cast<std::uint32_t>(number);
}

Network::Range readRange(const std::string& text) {
  using Named = std::pair<std::string_view, Network::Range>;
  constexpr std::array<Named, 4> ranges = {{{"LOCALHOST", Network::Range::Machine},
                                            {"SUBNET", Network::Range::Subnet},
                                            {"OFF", Network::Range::Nobody},
                                            {"SYSTEM_DEFAULT", Network::Range::System}}};
  const auto* const found = std::ranges::find(ranges, text, &Named::first);
  if (found == ranges.end()) {
    refuse(std::string(kRange) + ": " + text +
           " is none of LOCALHOST, SUBNET, OFF and SYSTEM_DEFAULT");
  }
  return found->second;
}

/// Letters, digits and what addresses have besides: nothing that would end the attribute in which
/// they are written.
bool isAddress(std::string_view text) {
  constexpr std::string_view others = ".:-_%[]";
  return std::ranges::all_of(text, [&](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           others.find(c) != std::string_view::npos;
  });
}

std::vector<std::string> readPeers(std::string_view text) {
  std::vector<std::string> peers;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(';'), text.size());
    const std::string peer(text.substr(0, end));
    if (!isAddress(peer)) {
      refuse(std::string(kPeers) + ": " + peer + " is no address");
    }
    if (!peer.empty()) {
      peers.push_back(peer);
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return peers;
}

bool readOnlyHere(const std::string& text) {
  if (!text.empty() && text != "0" && text != "1") {
    refuse(std::string(kOnlyHere) + ": " + text + " is neither 0 nor 1");
  }
  return text == "1";
}

std::string element(const std::string& name, const std::string& content) {
  return "<" + name + ">" + content + "</" + name + ">";
}

} // namespace

Network readNetwork(const Environment& environment, const std::string& interface) {
  Network network;
  network.domain = readDomain(valueOf(environment, kDomain));
  network.peers = readPeers(valueOf(environment, kPeers));
  const std::string range = valueOf(environment, kRange);
  const bool isOnlyHere = readOnlyHere(valueOf(environment, kOnlyHere));
  if (!range.empty()) {
    network.range = readRange(range);
  } else if (!interface.empty()) {
    network.range = Network::Range::Subnet;
  }
  // It is the older variable, and where it is set the others say nothing.
  if (isOnlyHere) {
    network.range = Network::Range::Machine;
    network.peers.clear();
  }
  if (!interface.empty()) {
    if (network.range == Network::Range::Machine || network.range == Network::Range::Nobody) {
      refuse("the interface " + interface + " is of no use: " +
             (isOnlyHere ? std::string(kOnlyHere) + "=1" : kRange + ("=" + range)) +
             " keeps to this machine");
    }
    if (!isAddress(interface) || ::if_nametoindex(interface.c_str()) == 0) {
      refuse("there is no network interface " + interface);
    }
    network.interface = interface;
  }
  return network;
}

std::string configurationOf(const Network& network, const std::string& own) {
  using Range = Network::Range;
  std::string general;
  std::string discovery;
  if (!network.interface.empty()) {
    general += element("Interfaces", "<NetworkInterface name=\"" + network.interface + "\"/>");
  }
  std::vector<std::string> peers = network.peers;
  if (network.range == Range::Machine) {
    // The interface is the usual one all the same: Fast DDS tells its address alone, and whoever
    // has only the loopback interface takes no notice of that.
    general += element("AllowMulticast", "false");
    // Others may wait for multicasts, which we neither send nor get: they are told soon.
    discovery += element("SPDPInterval", "1 s");
    discovery += element("ParticipantIndex", "auto");
    discovery += element("MaxAutoParticipantIndex", std::to_string(kMostParticipants));
    peers.insert(peers.begin(), "127.0.0.1");
  } else if (network.range == Range::Nobody) {
    general += element("AllowMulticast", "false");
    discovery += element("ParticipantIndex", "none");
    // Nobody else has this tag.
    discovery += element("Tag", "gk_discovery_off_${CYCLONEDDS_PID}");
    peers.clear();
  }
  if (!peers.empty()) {
    std::string list;
    for (const std::string& peer : peers) {
      list += "<Peer address=\"" + peer + "\"/>";
    }
    discovery += element("Peers", list);
  }
  // At the end nobody waits once more for each writer: see `Participant`.
  const std::string internal = element("WriterLingerDuration", "0 s");
  const std::string ours = "<CycloneDDS><Domain id=\"any\">" +
                           (general.empty() ? general : element("General", general)) +
                           (discovery.empty() ? discovery : element("Discovery", discovery)) +
                           element("Internal", internal) + "</Domain></CycloneDDS>";
  return own.empty() ? ours : ours + "," + own;
}

} // namespace gk::ros2
